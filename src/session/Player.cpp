#include "Player.h"

#include <algorithm>

namespace session
{

namespace
{

constexpr size_t mostReported = 10;
constexpr uint32_t usualFunctions = 0x0eff0009;  // plain I2C, and SMBus made of it
constexpr uint32_t usualBits = 8;

bool isAnswer(const Event& event)
{
    const auto* setting = std::get_if<Setting>(&event.what);
    return setting != nullptr && setting->isAnswer;
}

bool isReceived(const Event& event)
{
    const auto* transfer = std::get_if<SerialTransfer>(&event.what);
    return transfer != nullptr && (transfer->received || transfer->error != 0);
}

bool fits(const Data& line, const std::vector<Byte>& sent)
{
    return sent.size() == length(line) && std::equal(line.bytes.begin(), line.bytes.end(), sent.begin(),
                                                     [](const Byte& a, const Byte& b) { return !a || a == b; });
}

bool fits(const Open& line, const Open& asked)
{
    return line.bus == asked.bus;
}

bool fits(const Setting& line, const Setting& asked)
{
    return line.name == asked.name && line.isAnswer == asked.isAnswer &&
           (line.isAnswer || (line.value == asked.value && line.line == asked.line));
}

bool fits(const I2cMessage& line, const I2cMessage& asked)
{
    constexpr uint16_t receivesLength = 0x0400;
    return line.address == asked.address && line.tenBit == asked.tenBit && line.read == asked.read &&
           line.flags == asked.flags &&
           (line.read ? (line.flags & receivesLength) != 0 || length(line.data) == length(asked.data)
                      : fits(line.data, asked.data.bytes));
}

bool fits(const I2cTransfer& line, const I2cTransfer& asked)
{
    return std::equal(line.messages.begin(), line.messages.end(), asked.messages.begin(), asked.messages.end(),
                      [](const I2cMessage& a, const I2cMessage& b) { return fits(a, b); });
}

uint32_t orElse(uint32_t value, uint32_t otherwise)
{
    return value != 0 ? value : otherwise;
}

bool fits(const SpiTransfer& line, const SpiTransfer& asked)
{
    const auto segmentFits = [&](const SpiSegment& a, const SpiSegment& b) {
        const uint32_t speed = orElse(a.speedHz, line.speedHz.value_or(0));
        const uint32_t askedSpeed = orElse(b.speedHz, asked.speedHz.value_or(0));
        return fits(a.out, b.out.bytes) && (speed == 0 || askedSpeed == 0 || speed == askedSpeed) &&
               orElse(a.bitsPerWord, usualBits) == orElse(b.bitsPerWord, usualBits) &&
               orElse(a.outLines, 1) == orElse(b.outLines, 1) && orElse(a.inLines, 1) == orElse(b.inLines, 1) &&
               a.chipSelectChange == b.chipSelectChange;
    };
    return (!line.mode || !asked.mode || line.mode == asked.mode) &&
           std::equal(line.segments.begin(), line.segments.end(), asked.segments.begin(), asked.segments.end(),
                      segmentFits);
}

bool fits(const SerialTransfer&, const SerialTransfer&)
{
    return false;  // a stream of bytes: Player::exchange()
}

/// How many bytes of the line the program has sent: all, or as many as there are; nothing if others were sent.
std::optional<size_t> sentOf(const Event& line, const std::vector<uint8_t>& sent)
{
    const auto* transfer = std::get_if<SerialTransfer>(&line.what);
    if (transfer == nullptr || transfer->received)
        return std::nullopt;
    const std::vector<Byte>& bytes = transfer->data.bytes;
    const size_t size = std::min(bytes.size(), sent.size());
    for (size_t i = 0; i < size; ++i) {
        if (bytes[i] && *bytes[i] != sent[i])
            return std::nullopt;
    }
    return size;
}

bool hasRequest(const std::vector<Item>& items, const std::string& device)
{
    return std::any_of(items.begin(), items.end(), [&](const Item& item) {
        if (item.kind != Item::Kind::event)
            return hasRequest(item.items, device);
        return item.event.device == device && !isAnswer(item.event) && !isReceived(item.event);
    });
}

template <class Function>
void forEachEvent(const std::vector<Item>& items, const Function& function)
{
    for (const Item& item : items) {
        if (item.kind == Item::Kind::event)
            function(item.event);
        else
            forEachEvent(item.items, function);
    }
}

Setting usual(Setting::Name name)
{
    Setting setting;
    setting.name = name;
    if (name == Setting::Name::functions)
        setting.value = usualFunctions;
    if (name == Setting::Name::bits)
        setting.value = usualBits;
    return setting;
}

}  // namespace

bool fits(const Event& line, const Event& asked)
{
    return std::visit(
        [&](const auto& what) {
            const auto* other = std::get_if<std::decay_t<decltype(what)>>(&asked.what);
            return other != nullptr && fits(what, *other);
        },
        line.what);
}

void Track::add(const std::vector<Item>& items, const std::string& device)
{
    for (const Item& item : items) {
        const size_t start = steps.size();
        switch (item.kind) {
        case Item::Kind::event:
            if (item.event.device == device)
                steps.push_back({{&item.event}, 0});
            break;
        case Item::Kind::unordered: {
            Step step;
            forEachEvent(item.items, [&](const Event& event) {
                if (event.device == device)
                    step.events.push_back(&event);
            });
            if (!step.events.empty())
                steps.push_back(step);
            break;
        }
        case Item::Kind::repeat:
            add(item.items, device);
            if (hasRequest(item.items, device))
                steps.push_back({{}, start});
            break;
        }
    }
}

void Track::collect(size_t step, std::vector<Candidate>& found) const
{
    for (; step < steps.size(); ++step) {
        const std::vector<const Event*>& events = steps[step].events;
        if (events.empty()) {
            collect(step + 1, found);
            step = steps[step].blockStart;
        }
        for (const Event* event : steps[step].events) {
            if (step != at || taken.count(event) == 0)
                found.push_back({event, step});
        }
        if (!isAnswer(*steps[step].events.front()))
            return;
    }
}

std::vector<Track::Candidate> Track::candidates() const
{
    std::vector<Candidate> found;
    collect(at, found);
    return found;
}

std::vector<const Event*> Track::next() const
{
    std::vector<const Event*> events;
    for (const Candidate& candidate : candidates())
        events.push_back(candidate.event);
    return events;
}

void Track::take(const Event* event)
{
    for (const Candidate& candidate : candidates()) {
        if (candidate.event != event)
            continue;
        if (candidate.step != at)
            taken.clear();
        at = candidate.step;
        taken.insert(event);
        if (taken.size() == steps[at].events.size()) {
            taken.clear();
            ++at;
        }
        return;
    }
}

std::vector<const Event*> Track::left() const
{
    std::vector<const Event*> events;
    for (size_t step = at; step < steps.size(); ++step) {
        for (const Event* event : steps[step].events) {
            if (!isAnswer(*event) && (step != at || taken.count(event) == 0))
                events.push_back(event);
        }
    }
    return events;
}

Player::Player(Session toPlay) : session(std::move(toPlay))
{
    forEachEvent(session.items, [this](const Event& event) {
        Device& device = players[event.device];
        device.bus = session::busOf(event);
        if (std::holds_alternative<Open>(event.what))
            device.opens = true;
        else if (const auto* setting = std::get_if<Setting>(&event.what); setting != nullptr && !setting->isAnswer)
            device.sets.insert(setting->name);
    });
    for (auto& [name, device] : players)
        device.track.add(session.items, name);
}

std::optional<Bus> Player::busOf(const std::string& device) const
{
    const auto found = players.find(device);
    return found == players.end() ? std::nullopt : std::optional<Bus>{found->second.bus};
}

std::vector<std::string> Player::devices() const
{
    std::vector<std::string> names;
    for (const auto& [name, device] : players)
        names.push_back(name);
    return names;
}

void Player::learn(Device& device, const Event& event)
{
    if (const auto* open = std::get_if<Open>(&event.what)) {
        if (open->mode)
            device.settings[Setting::Name::mode] = {Setting::Name::mode, true, *open->mode, {}, 0};
        if (open->speedHz)
            device.settings[Setting::Name::speed] = {Setting::Name::speed, true, *open->speedHz, {}, 0};
        if (open->line)
            device.settings[Setting::Name::line] = {Setting::Name::line, true, 0, *open->line, 0};
    } else if (const auto* setting = std::get_if<Setting>(&event.what); setting != nullptr && setting->error == 0) {
        device.settings[setting->name] = {setting->name, true, setting->value, setting->line, 0};
    }
}

const Event* Player::accept(Device& device, const Event& event)
{
    accepted = event;
    accepted.fileLine = 0;
    learn(device, accepted);
    return &accepted;
}

const Event* Player::deviate(const Track& track, const Event& asked)
{
    if (deviated.size() == mostReported) {
        ++moreDeviations;
        return nullptr;
    }
    const std::vector<const Event*> next = track.next();
    const auto first = std::find_if(next.begin(), next.end(), [](const Event* event) { return !isAnswer(*event); });
    deviated.push_back({first == next.end() ? nullptr : *first, asked});
    return nullptr;
}

std::vector<const Event*> Player::next(const std::string& device) const
{
    const auto found = players.find(device);
    return found == players.end() ? std::vector<const Event*>{} : found->second.track.next();
}

const Event* Player::find(const Event& asked) const
{
    const std::vector<const Event*> lines = next(asked.device);
    const auto line = std::find_if(lines.begin(), lines.end(), [&](const Event* each) { return fits(*each, asked); });
    return line == lines.end() ? nullptr : *line;
}

void Player::skip(const Event& line)
{
    players.at(line.device).track.take(&line);
}

const Event* Player::answer(const Event& asked)
{
    const auto found = players.find(asked.device);
    if (found == players.end())
        return deviate({}, asked);

    Device& device = found->second;
    if (const Event* event = find(asked)) {
        device.track.take(event);
        learn(device, *event);
        return event;
    }

    if (const auto* setting = std::get_if<Setting>(&asked.what)) {
        if (setting->isAnswer) {
            Event told = asked;
            const auto now = device.settings.find(setting->name);
            Setting value = now != device.settings.end() ? now->second : usual(setting->name);
            value.isAnswer = true;
            told.what = value;
            return accept(device, told);
        }
        if (device.sets.count(setting->name) == 0)
            return accept(device, asked);
    }
    if (std::holds_alternative<Open>(asked.what) && !device.opens)
        return accept(device, asked);
    return deviate(device.track, asked);
}

std::vector<const Event*> Player::exchange(const std::string& name, const std::vector<uint8_t>& sent)
{
    Device& device = players.at(name);
    device.sent.insert(device.sent.end(), sent.begin(), sent.end());

    std::vector<const Event*> passed;
    for (;;) {
        const std::vector<const Event*> next = device.track.next();
        if (!next.empty() && isReceived(*next.front())) {
            device.track.take(next.front());
            passed.push_back(next.front());
            continue;
        }
        if (device.sent.empty())
            return passed;
        const auto line = std::find_if(next.begin(), next.end(),
                                       [&](const Event* event) { return sentOf(*event, device.sent).has_value(); });
        if (line == next.end()) {
            Event came;
            came.device = name;
            came.what = SerialTransfer{false, known(device.sent), 0};
            device.sent.clear();
            deviate(device.track, came);
            return passed;
        }
        const size_t size = std::get<SerialTransfer>((*line)->what).data.bytes.size();
        if (size > device.sent.size())
            return passed;
        device.sent.erase(device.sent.begin(), device.sent.begin() + static_cast<std::ptrdiff_t>(size));
        device.track.take(*line);
        passed.push_back(*line);
    }
}

void Player::finish()
{
    for (auto& [name, device] : players) {
        if (device.sent.empty())
            continue;
        Event came;
        came.device = name;
        came.what = SerialTransfer{false, known(device.sent), 0};
        device.sent.clear();
        deviate(device.track, came);
    }
}

std::vector<const Event*> Player::left() const
{
    std::vector<const Event*> events;
    for (const auto& [name, device] : players) {
        const std::vector<const Event*> ofDevice = device.track.left();
        events.insert(events.end(), ofDevice.begin(), ofDevice.end());
    }
    std::sort(events.begin(), events.end(), [](const Event* a, const Event* b) { return a->fileLine < b->fileLine; });
    return events;
}

std::vector<const Event*> eventsOf(const Session& session)
{
    std::vector<const Event*> events;
    forEachEvent(session.items, [&](const Event& event) { events.push_back(&event); });
    return events;
}

std::string toText(const Deviation& deviation, const std::string& file)
{
    if (deviation.expected == nullptr)
        return file + ": not in the session: " + withoutTime(deviation.came) + '\n';
    const std::string place = file + ":" + std::to_string(deviation.expected->fileLine) + ": ";
    return place + "expected  " + withoutTime(*deviation.expected) + '\n' + std::string(place.size(), ' ') +
           "came      " + withoutTime(deviation.came) + '\n';
}

std::string neverAsked(const Event& event, const std::string& file)
{
    return file + ":" + std::to_string(event.fileLine) + ": never asked for: " + withoutTime(event) + '\n';
}

std::string Player::report(const std::string& file) const
{
    std::string text;
    for (const Deviation& deviation : deviated)
        text += toText(deviation, file);
    if (moreDeviations > 0)
        text += file + ": further deviations: " + std::to_string(moreDeviations) + '\n';

    std::vector<const Event*> missing = left();
    const auto isShown = [this](const Event* line) {
        return std::any_of(deviated.begin(), deviated.end(),
                           [line](const Deviation& deviation) { return deviation.expected == line; });
    };
    missing.erase(std::remove_if(missing.begin(), missing.end(), isShown), missing.end());
    for (size_t i = 0; i < std::min(missing.size(), mostReported); ++i)
        text += neverAsked(*missing[i], file);
    if (missing.size() > mostReported)
        text += file + ": further lines never asked for: " + std::to_string(missing.size() - mostReported) + '\n';
    return text;
}

}  // namespace session
