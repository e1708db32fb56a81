// The search of the manual: lists the sections that contain every word, first those with a word in their heading.
(function () {
    const field = document.createElement("input");
    field.id = "search";
    field.type = "search";
    field.placeholder = "Search";
    field.setAttribute("aria-label", "Search the manual");
    const results = document.createElement("ul");
    results.id = "results";
    document.querySelector("div.tabs").after(field, results);

    function find(words) {
        const score = ([, page, heading]) => words.filter((word) => (heading || page).toLowerCase().includes(word)).length;
        return searchIndex
            .filter(([, page, heading, text]) => words.every((word) => `${page} ${heading}\n${text}`.toLowerCase().includes(word)))
            .sort((a, b) => score(b) - score(a))
            .slice(0, 20);
    }

    function show() {
        const words = field.value.toLowerCase().split(/\s+/).filter(Boolean);
        const found = words.length > 0 ? find(words) : [];
        results.replaceChildren(...found.map(([address, page, heading]) => {
            const link = document.createElement("a");
            link.href = address;
            link.textContent = heading && heading !== page ? `${page}: ${heading}` : page;
            const item = document.createElement("li");
            item.append(link);
            return item;
        }));
        if (words.length > 0 && found.length === 0)
            results.textContent = "Nothing found";
    }

    field.addEventListener("input", show);
    field.value = new URLSearchParams(location.search).get("q") || "";
    show();
})();
