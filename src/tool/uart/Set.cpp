// The verb set: settings that stay when the program has ended.

#include "uart/Verbs.h"

#include "uart/OpenLine.h"
#include "uart/Values.h"

namespace uart
{
namespace
{

struct Set : NoTraffic {
    std::string path;
    std::optional<uint32_t> baudRate;
    std::optional<int> dataBits;
    std::optional<Line::Parity> parity;
    std::optional<int> stopBits;
    std::optional<bool> rtsCts;
    std::optional<bool> xonXoff;
    std::optional<bool> hangUp;
    std::optional<bool> lowLatency;
    std::optional<bool> rs485;
    std::optional<bool> rtsOnSend;
    std::optional<bool> receiveDuringSend;
    std::optional<uint32_t> delayBefore;
    std::optional<uint32_t> delayAfter;
    std::optional<bool> dtr;
    std::optional<bool> rts;
    bool sendBreak = false;

    [[nodiscard]] bool changesSettings() const
    {
        return baudRate || dataBits || parity || stopBits || rtsCts || xonXoff || hangUp;
    }
    [[nodiscard]] bool changesRs485() const
    {
        return rs485 || rtsOnSend || receiveDuringSend || delayBefore || delayAfter;
    }
    [[nodiscard]] bool changesModemLines() const { return dtr || rts || sendBreak; }
};

int parseDigit(const std::string& text)
{
    return text[0] - '0';
}

uint32_t parseDelay(const std::string& text)
{
    const auto delay = numberOf(text, 10);
    if (!delay || *delay > 100)
        refuse("delay \"" + text + "\": must be 0 to 100 ms");
    return static_cast<uint32_t>(*delay);
}

void describe(Grammar& grammar, OutputOptions& /*output*/, Set& request)
{
    describeTty(grammar, request.path);
    describeBaud(grammar, request.baudRate);
    grammar.option("--data-bits", "N", "Data bits", request.dataBits, parseDigit).choose({"5", "6", "7", "8"});
    grammar.option("--parity", "P", "Parity", request.parity, parityOf)
        .choose({"none", "even", "odd", "mark", "space"});
    grammar.option("--stop-bits", "N", "Stop bits", request.stopBits, parseDigit).choose({"1", "2"});
    describeSwitch(grammar, "--rts-cts", "Hardware flow control", request.rtsCts);
    describeSwitch(grammar, "--xon-xoff", "Software flow control", request.xonXoff);
    describeSwitch(grammar, "--hang-up", "Drop DTR and RTS when the last program closes the port", request.hangUp);
    describeSwitch(grammar, "--low-latency", "Pass received bytes on at once", request.lowLatency);
    describeSwitch(grammar, "--rs485", "RS-485: switch the transceiver with RTS", request.rs485);
    describeSwitch(grammar, "--rts-on-send", "RS-485: level of RTS while sending", request.rtsOnSend);
    describeSwitch(grammar, "--receive-during-send", "RS-485: receive what is sent", request.receiveDuringSend);
    grammar.option("--delay-before", "MS", "RS-485: time from RTS to the first bit", request.delayBefore, parseDelay);
    grammar.option("--delay-after", "MS", "RS-485: time from the last bit to RTS", request.delayAfter, parseDelay);
    describeModemLines(grammar, request.dtr, request.rts, request.sendBreak);
}

void check(Set& request)
{
    if (!request.changesSettings() && !request.changesRs485() && !request.lowLatency && !request.changesModemLines())
        refuse("nothing to set; serialcomm uart info shows the settings");
    if (request.rs485 == false &&
        (request.rtsOnSend || request.receiveDuringSend || request.delayBefore || request.delayAfter))
        refuse("--rs485 off cannot be combined with other options for RS-485");
}

Line::Settings changed(Line::Settings settings, const Set& request)
{
    settings.baudRate = request.baudRate.value_or(settings.baudRate);
    settings.dataBits = request.dataBits.value_or(settings.dataBits);
    settings.parity = request.parity.value_or(settings.parity);
    settings.stopBits = request.stopBits.value_or(settings.stopBits);
    settings.rtsCts = request.rtsCts.value_or(settings.rtsCts);
    settings.xonXoff = request.xonXoff.value_or(settings.xonXoff);
    settings.hangUpOnClose = request.hangUp.value_or(settings.hangUpOnClose);
    return settings;
}

/// Any option for RS-485 switches it on.
Line::Rs485 changed(Line::Rs485 settings, const Set& request)
{
    settings.enabled = request.rs485.value_or(true);
    settings.rtsOnSend = request.rtsOnSend.value_or(settings.rtsOnSend);
    settings.receiveDuringSend = request.receiveDuringSend.value_or(settings.receiveDuringSend);
    settings.delayBeforeSendMs = request.delayBefore.value_or(settings.delayBeforeSendMs);
    settings.delayAfterSendMs = request.delayAfter.value_or(settings.delayAfterSendMs);
    return settings;
}

void apply(const Set& request, Line& line)
{
    const ErrorScope errors;
    if (request.changesSettings()) {
        const auto found = line.settings();
        if (found && found->baudRate == 0 && !request.baudRate)
            throw Failure{TransferFailed, request.path + ": no baud rate is set", "--baud as well"};
        if (!found || !line.setSettings(changed(*found, request)))
            throw lineFailure(TransferFailed, line, "settings", errors);
    }
    if (request.changesRs485()) {
        // RTS on while sending is the default where RS-485 is off.
        const auto found = line.rs485();
        if (!found || !line.setRs485(changed(found->enabled ? *found : Line::Rs485{}, request)))
            throw lineFailure(TransferFailed, line, "RS-485", errors);
    }
    if (request.lowLatency && !line.setLowLatency(*request.lowLatency))
        throw lineFailure(TransferFailed, line, "low latency", errors);
}

/// What is in force, as far as this request concerns it.
std::string current(const Set& request, const Line& line)
{
    std::string text;
    const auto settings = line.settings();
    if (request.changesSettings() && settings)
        text = settingsText(*settings);
    const auto rs485 = request.changesRs485() ? line.rs485() : std::nullopt;
    if (rs485)
        text += (text.empty() ? "RS-485 " : "; RS-485 ") + rs485Text(*rs485);
    const auto hardware = request.lowLatency ? line.hardware() : std::nullopt;
    if (hardware)
        text += std::string{text.empty() ? "" : "; "} + "low latency " + (hardware->lowLatency ? "on" : "off");
    return text;
}

/// Closes the port and opens it again: some drivers then have other settings.
void checkWhatStays(const Set& request, Line& line)
{
    const std::string before = current(request, line);
    if (before.empty())
        return;
    openLine(line);  // closes it first
    const std::string after = current(request, line);
    if (after != before)
        printError(request.path + ": the driver did not keep " + before + " when the port was closed, but has " +
                   after);
}

void run(const Set& request, Output& /*output*/)
{
    Line line{request.path};
    openLine(line);
    apply(request, line);
    checkWhatStays(request, line);
    setModemLines(line, request.dtr, request.rts, request.sendBreak);  // last: opening asserts DTR and RTS

    const auto settings = line.settings();
    if (settings && request.baudRate && *request.baudRate != settings->baudRate)
        printError(request.path + ": the driver has rounded " + std::to_string(*request.baudRate) + " baud to " +
                   std::to_string(settings->baudRate));
    if ((request.dtr == true || request.rts == true) && settings && settings->hangUpOnClose)
        printError(request.path + ": DTR and RTS drop when the port is closed; --hang-up off keeps them");
    if (request.dtr == false || request.rts == false)
        printError(request.path + ": the kernel asserts DTR and RTS when the port is opened again");
}

}  // namespace

void addSet(Verbs& verbs)
{
    verbs.push_back(verb<Set>("uart", "set", "change settings that stay: also RS-485, low latency, modem lines",
                              "uart set ttyUSB0 -b 250000 --hang-up off"));
}

}  // namespace uart
