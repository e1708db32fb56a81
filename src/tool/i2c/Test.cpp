// The verb test: whether registers that keep their value are read reliably.

#include "i2c/Verbs.h"

#include "base/Bytes.h"
#include "base/Repeat.h"
#include "i2c/Chip.h"
#include "i2c/ChipRequest.h"
#include "i2c/Traffic.h"

#include <optional>

namespace i2c
{
namespace
{

struct Test : ChipRequest {
    std::vector<std::string> words;
    std::vector<ByteArray> registers;
    size_t count = 0;
};

void describe(Grammar& grammar, OutputOptions& output, Test& request)
{
    describeChip(grammar, request);
    grammar.repeatedOption("--read", "REG...", "Registers whose value does not change", request.words)
        .takeMany()
        .require()
        .show("--read REG...");
    grammar.option("--count", "N", "Read each register N times", request.count, parseRepeatCount, "100");
    grammar.output(output, true);
}

void check(Test& request)
{
    check(static_cast<const ChipRequest&>(request));
    for (const std::string& word : request.words)
        request.registers.push_back(parseRegister(word));
}

std::string traffic(const Test& request)
{
    std::string once;
    for (const ByteArray& reg : request.registers)
        once += (once.empty() ? "" : "\n") + writeReadTraffic(request.address, reg, 1);
    return repeatedTraffic({milliseconds{0}, request.count, false}, once);
}

/// What the reads of a register have shown.
struct Readings {
    size_t count = 0;
    size_t errors = 0;  ///< not acknowledged
    size_t changes = 0;
    std::optional<uint8_t> last;
    std::string firstChange;  ///< "read 17: 4b, then 4a"

    void add(const std::optional<uint8_t>& value)
    {
        ++count;
        if (!value) {
            ++errors;
            return;
        }
        if (last && *last != *value && ++changes == 1)
            firstChange = "read " + std::to_string(count) + ": " + hexPair(*last) + ", then " + hexPair(*value);
        last = value;
    }
};

std::string textOf(const Readings& readings)
{
    std::string text = std::to_string(readings.count) + (readings.count == 1 ? " read" : " reads");
    if (readings.errors == 0 && readings.changes == 0)
        return text + ", always " + hexPair(*readings.last);
    if (readings.errors > 0)
        text += ", " + std::to_string(readings.errors) + " without an answer";
    if (readings.changes > 0)
        text += ", " + std::to_string(readings.changes) + (readings.changes == 1 ? " change" : " changes") +
                ", the first at " + readings.firstChange;
    return text;
}

Fields fieldsOf(const Test& request, const ByteArray& reg, const Readings& readings)
{
    Fields fields = fieldsOf(request);
    fields["register"] = hexName(reg);
    fields["reads"] = readings.count;
    fields["errors"] = readings.errors;
    fields["changes"] = readings.changes;
    fields["value"] = readings.last;
    return fields;
}

void run(const Test& request, Output& output)
{
    Chip chip{request, output};
    std::vector<Readings> all(request.registers.size());
    for (size_t i = 0; i < request.count; ++i) {
        output.progress("read " + std::to_string(i + 1) + " of " + std::to_string(request.count));
        for (size_t r = 0; r < all.size(); ++r)
            all[r].add(chip.registerValue(request.registers[r]));
    }
    bool answered = false;
    size_t errors = 0;
    size_t changes = 0;
    for (size_t r = 0; r < all.size(); ++r) {
        const ByteArray& reg = request.registers[r];
        output.result(fieldsOf(request, reg, all[r]), "register " + hexName(reg) + ": " + textOf(all[r]));
        answered = answered || all[r].last;
        errors += all[r].errors;
        changes += all[r].changes;
    }
    if (!answered)
        throw chip.noAnswer();
    if (errors + changes > 0)
        throw Failure{TransferFailed,
                      chip.name() + ": " + std::to_string(errors) + " of " +
                          std::to_string(request.count * all.size()) + " reads without an answer, " +
                          std::to_string(changes) + " with another value than the one before",
                      "stronger pull-ups, shorter wires, a lower bus clock; registers that keep their value"};
}

}  // namespace

void addTest(Verbs& verbs)
{
    verbs.push_back(verb<Test>("i2c", "test", "read registers repeatedly, and count errors and changes",
                               "i2c test 4 0x48 --read 0x02 0x03"));
}

}  // namespace i2c
