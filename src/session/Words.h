// One line of a session, word by word.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

namespace session
{

struct Word {
    enum class Kind { plain, text, mark };
    Kind kind = Kind::plain;
    std::string value;  ///< Of a text what stands between the quotation marks, escapes resolved.
};

/// Words are separated by blanks; texts in quotation marks and the marks ; , are words of their own. "#" starts a
/// comment.
class Words
{
public:
    /// @throws SyntaxError
    explicit Words(const std::string& line);

    [[nodiscard]] bool atEnd() const { return next == words.size(); }

    /// The next word; an empty one at the end.
    [[nodiscard]] const Word& peek() const;
    [[nodiscard]] bool nextIs(const std::string& plain) const;
    [[nodiscard]] bool nextIsMark(char mark) const;

    Word take();
    /// Takes the next word if it is this one.
    bool take(const std::string& plain);
    bool takeMark(char mark);

    /// @throws SyntaxError naming the next word, and what it should be.
    [[noreturn]] void expected(const std::string& what) const;
    void expectEnd() const;

private:
    std::vector<Word> words;
    size_t next = 0;
};

/// The text in quotation marks: "a\r\n".
std::string quoted(const std::string& text);

/// A decimal number up to `most`, or a hexadecimal one with 0x before it; otherwise nothing is taken.
///
/// @throws SyntaxError naming the word, and `what` it should be.
unsigned long takeNumber(Words& words, unsigned long most, const std::string& what);

}  // namespace session
