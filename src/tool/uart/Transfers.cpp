// Verbs that send, receive, or both: read, write, ask, echo.

#include "uart/Verbs.h"

#include "base/Bytes.h"
#include "base/Signals.h"
#include "uart/Port.h"
#include "uart/Reception.h"
#include "uart/Values.h"

namespace uart
{
namespace
{

/// "68 69  115200 8N1"
std::string traffic(const ByteArray& sent, const Line& line)
{
    return (sent.empty() ? "" : shortHex(sent) + "  ") + line.settings();
}

struct Read : Line {
    std::optional<size_t> count;
    ReceptionOptions options;
};

void describe(Grammar& grammar, OutputOptions& output, Read& request)
{
    describeLine(grammar, request);
    grammar.optionalWord("N", "Bytes to read, decimal; default: no limit", request.count,
                         [](const std::string& text) { return parseCount(text, maxBytes, "one read"); });
    describeHex(grammar, request.options.hex);
    describeReception(grammar, request.options, "");
    grammar.output(output, true);
}

void check(Read& request)
{
    check(request.options);
    if (request.count && request.options.line)
        refuse("N and --line cannot be combined");
}

std::string traffic(const Read& request)
{
    return (request.count ? "[" + std::to_string(*request.count) + "]  " : "") + request.settings();
}

void run(const Read& request, Output& output)
{
    const auto port = openPort(request, traffic(request), output);
    const Reception reception = receive(*port, request.options, request.count.value_or(SIZE_MAX), {}, output);
    if (reception.count == 0)
        throw Failure{TransferFailed,
                      request.path + ": nothing received within " + limitText(reception, request.options) + " at " +
                          request.settings(),
                      "another --baud, or check whether TX and RX are swapped"};
    throwIfIncomplete(reception, request.options, request.path);
    reportEnding(reception);
    if (request.count && !reception.complete)
        throw Failure{TransferFailed, request.path + ": received " + std::to_string(reception.count) + " of " +
                                          byteCount(*request.count) + " before " + endText(reception, request.options)};
}

/// What is sent: text with a line ending, bytes in hex, or standard input as it is.
struct Message {
    std::vector<std::string> words;
    ByteArray lineEnd;
    bool hex = false;
    ByteArray bytes;

    [[nodiscard]] bool isStandardInput() const { return words == std::vector<std::string>{"-"}; }
};

void describeMessage(Grammar& grammar, Message& message, const std::string& hexHelp)
{
    grammar.words("TEXT", R"(Words joined by spaces; \r \n \t \\ \xNN; - for raw standard input)", message.words);
    grammar.flag("--hex", hexHelp, message.hex);
    describeLineEnd(grammar, message.lineEnd).exclude("--hex");
}

void check(Message& message)
{
    if (message.hex && !message.isStandardInput()) {
        message.bytes = parseBytes(message.words);
    } else if (!message.isStandardInput()) {
        message.bytes = parseText(message.words);
        message.bytes.insert(message.bytes.end(), message.lineEnd.begin(), message.lineEnd.end());
    }
    if (message.bytes.empty())
        refuse("no bytes to send");
}

struct Write : Line {
    Message message;  ///< only the first piece, if it is standard input
};

void describe(Grammar& grammar, OutputOptions& /*output*/, Write& request)
{
    describeLine(grammar, request);
    describeMessage(grammar, request.message, "Hex pairs instead of text");
}

void check(Write& request)
{
    if (request.message.isStandardInput())
        request.message.bytes = readInput();
    check(request.message);
}

std::string traffic(const Write& request)
{
    return traffic(request.message.bytes, request);
}

void run(const Write& request, Output& output)
{
    const auto port = openPort(request, traffic(request), output);
    size_t sent = 0;
    for (ByteArray piece = request.message.bytes; !piece.empty();) {
        port->send(piece);
        sent += piece.size();
        output.progress(std::to_string(sent) + " bytes sent");
        piece = request.message.isStandardInput() ? readInput() : ByteArray{};
    }
}

struct Ask : Line {
    Message question;
    ReceptionOptions options;
    bool skipEcho = false;
};

void describe(Grammar& grammar, OutputOptions& output, Ask& request)
{
    describeLine(grammar, request);
    describeMessage(grammar, request.question, "Hex pairs instead of text, in and out; one line per burst");
    grammar.flag("--skip-echo", "Ignore the echo of the question before the answer", request.skipEcho);
    describeReception(grammar, request.options, "1");
    grammar.output(output, true);
}

void check(Ask& request)
{
    if (request.question.isStandardInput())
        request.question.bytes = readWholeInput(maxBytes);
    check(request.question);
    request.options.hex = request.question.hex;
    check(request.options);
}

std::string traffic(const Ask& request)
{
    return traffic(request.question.bytes, request);
}

void run(const Ask& request, Output& output)
{
    const auto port = openPort(request, traffic(request), output);
    const ByteArray& question = request.question.bytes;
    port->queue(question);
    const Reception reception =
        receive(*port, request.options, SIZE_MAX, request.skipEcho ? question : ByteArray{}, output);
    if (port->pending() > 0 && !reception.complete)
        throw Failure{TransferFailed,
                      request.path + ": " + port->sendReport() + "; stopped at " + endText(reception, request.options)};
    port->flush();
    if (reception.count == 0)
        throw Failure{TransferFailed,
                      request.path + ": no answer within " + limitText(reception, request.options) + " at " +
                          request.settings(),
                      "another --baud or --eol, or check whether TX and RX are swapped"};
    throwIfIncomplete(reception, request.options, request.path);
    reportEnding(reception);
}

struct Echo : Line {
    bool hex = false;
};

void describe(Grammar& grammar, OutputOptions& output, Echo& request)
{
    describeLine(grammar, request);
    describeHex(grammar, request.hex);
    grammar.output(output, true);
}

std::string traffic(const Echo& request)
{
    return request.settings();
}

void run(const Echo& request, Output& output)
{
    const auto port = openPort(request, traffic(request), output);
    Display display{output, request.hex};
    const Limits limits{{}, {}, true};
    for (;;) {
        try {
            const ByteArray bytes =
                display.inBursts() ? port->receiveBurst(SIZE_MAX, limits) : port->receive(SIZE_MAX, limits);
            display.show(bytes);
            port->queue(bytes);
        } catch (const PortGone&) {
            if (port->slave().empty())
                throw;
            port->takeQueue();  // the program that sent it is gone; another one may open the port
        }
    }
}

}  // namespace

void addTransfers(Verbs& verbs)
{
    verbs.push_back(verb<Read>("uart", "read", "print received bytes, at most N", "uart read ttyUSB0 --timeout 2"));
    verbs.push_back(verb<Write>("uart", "write", "send text; status 0 does not prove that it arrived",
                                "uart write ttyUSB0 'AT+GMR' --eol crlf"));
    verbs.push_back(
        verb<Ask>("uart", "ask", "send, print the answer; status 1 if none", "uart ask ttyUSB0 '*IDN?' --eol lf"));
    verbs.push_back(verb<Echo>("uart", "echo", "send back all received bytes, as a test peer", "uart echo pty"));
}

}  // namespace uart
