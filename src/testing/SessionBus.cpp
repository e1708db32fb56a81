#include "serialComm/testing/SessionBus.h"

#include "session/Player.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace serialComm::testing
{

using session::Event;
using session::I2cMessage;
using session::I2cTransfer;
using session::Item;
using session::SpiTransfer;

namespace
{

/// Removes lines about other devices and addresses, and blocks that are empty then.
void keepChip(std::vector<Item>& items, const std::string& device, int address)
{
    const auto isOther = [&](Item& item) {
        if (item.kind != Item::Kind::event) {
            keepChip(item.items, device, address);
            return item.items.empty();
        }
        const auto* transfer = std::get_if<I2cTransfer>(&item.event.what);
        return item.event.device != device || (transfer != nullptr && transfer->messages.front().address != address);
    };
    items.erase(std::remove_if(items.begin(), items.end(), isOther), items.end());
}

/// The address of all transfers; nothing yet where there is none.
void findAddress(const std::vector<Item>& items, std::optional<uint16_t>& address)
{
    for (const Item& item : items) {
        findAddress(item.items, address);
        const auto* transfer = std::get_if<I2cTransfer>(&item.event.what);
        if (item.kind != Item::Kind::event || transfer == nullptr)
            continue;
        for (const I2cMessage& message : transfer->messages) {
            if (address.value_or(message.address) != message.address)
                throw std::invalid_argument("line " + std::to_string(item.event.fileLine) +
                                            ": a second address; a SessionBus is one chip");
            address = message.address;
        }
    }
}

}  // namespace

class SessionBus::Impl
{
public:
    Impl(session::Session session, std::string fileName, FailureHandler handler)
        : file(std::move(fileName)), fail(std::move(handler)), player(std::move(session))
    {
        const std::vector<std::string> devices = player.devices();
        if (devices.empty())
            throw std::invalid_argument(file + ": no lines to play");
        device = devices.front();
        bus = player.busOf(device).value();
        if (bus == session::Bus::serial)
            throw std::invalid_argument(file + ": a serial port is no bus of chips");
        std::optional<uint16_t> found;
        findAddress(player.played().items, found);
        address = found.value_or(0);
    }

    /// The line for what is asked for; null, and the test fails, if it is not the next one.
    template <class What>
    const Event* answer(const What& what)
    {
        Event asked;
        asked.device = device;
        asked.what = what;
        const size_t before = player.deviations().size();
        const Event* event = player.answer(asked);
        if (event == nullptr && player.deviations().size() > before)
            fail(session::toText(player.deviations().back(), file));
        return event;
    }

    void finish()
    {
        std::string text;
        for (const Event* event : player.left())
            text += session::neverAsked(*event, file);
        if (!text.empty())
            fail(text);
    }

    std::string file;
    FailureHandler fail;
    session::Player player;
    std::string device;
    session::Bus bus = session::Bus::i2c;
    uint16_t address = 0;
};

SessionBus::SessionBus(std::unique_ptr<Impl> parsed)
    : TestBus(parsed->bus == session::Bus::spi ? Kind::spi : Kind::i2c), impl(std::move(parsed))
{
}

std::string SessionBus::joined(std::initializer_list<std::string> lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += line + '\n';
    return text;
}

SessionBus::SessionBus(const std::string& lines, FailureHandler fail)
    : SessionBus([&] {
          try {
              return std::make_unique<Impl>(session::parseLines(lines), "session", std::move(fail));
          } catch (const session::FormatError& error) {
              throw std::invalid_argument("session:" + std::to_string(error.fileLine) + ": " + error.what());
          }
      }())
{
}

SessionBus SessionBus::fromFile(const std::string& file, const std::string& device, int address, FailureHandler fail)
{
    std::ifstream stream{file};
    std::ostringstream text;
    text << stream.rdbuf();
    if (!stream)
        throw std::invalid_argument(file + ": cannot be read");
    try {
        session::Session session = session::parse(text.str());
        keepChip(session.items, device, address);
        return SessionBus{std::make_unique<Impl>(std::move(session), file, std::move(fail))};
    } catch (const session::FormatError& error) {
        throw std::invalid_argument(file + ":" + std::to_string(error.fileLine) + ": " + error.what());
    }
}

SessionBus::~SessionBus()
{
    impl->finish();
}

bool SessionBus::init()
{
    session::Open open;
    open.bus = impl->bus;
    const Event* event = impl->answer(open);
    return event != nullptr && session::errorOf(*event) == 0;
}

TestBus::Result SessionBus::transfer(const Transfer& transfer)
{
    if (busKind() == Kind::spi) {
        const Event* event = impl->answer(SpiTransfer{
            {{session::known(*transfer.sent), session::planned(transfer.sent->size())}}, std::nullopt, std::nullopt});
        if (event == nullptr)
            return {EIO, {}, 0};
        const auto& answer = std::get<SpiTransfer>(event->what);
        return {answer.error, bytesOf(answer.segments.front().in), 0};
    }

    I2cTransfer asked;
    if (transfer.sent)
        asked.messages.push_back({impl->address, false, false, 0, session::known(*transfer.sent)});
    if (transfer.wanted)
        asked.messages.push_back({impl->address, false, true, 0, session::planned(*transfer.wanted)});
    const Event* event = impl->answer(asked);
    if (event == nullptr)
        return {EIO, {}, 0};
    const auto& answer = std::get<I2cTransfer>(event->what);
    Result result{answer.error, {}, 0};
    if (transfer.wanted)
        result.received = bytesOf(answer.messages.back().data);
    else
        result.written = answer.messages.front().data.bytes.size();
    return result;
}

int SessionBus::setSpeed(int hz)
{
    session::Setting speed;
    speed.name = session::Setting::Name::speed;
    speed.value = static_cast<uint32_t>(hz);
    const Event* event = impl->answer(speed);
    return event == nullptr ? EIO : session::errorOf(*event);
}

}  // namespace serialComm::testing
