// Answers a program from a session, and keeps where the program did something else.
#pragma once

#include "Session.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace session
{

/// The lines of one device in the order in which they may come.
class Track
{
public:
    void add(const std::vector<Item>& items, const std::string& device);

    /// What may come next; what has precedence is first. Lines with "get" may be left out.
    [[nodiscard]] std::vector<const Event*> next() const;
    void take(const Event* event);

    /// What must still come.
    [[nodiscard]] std::vector<const Event*> left() const;

private:
    struct Step {
        std::vector<const Event*> events;  ///< One, or those of an unordered block; none at the end of a repeated one.
        size_t blockStart = 0;             ///< Of a repeated block, at its end.
    };
    struct Candidate {
        const Event* event;
        size_t step;
    };

    [[nodiscard]] std::vector<Candidate> candidates() const;
    void collect(size_t step, std::vector<Candidate>& found) const;

    std::vector<Step> steps;
    size_t at = 0;
    std::set<const Event*> taken;  // of the unordered block at `at`
};

/// What the program did other than the session has it.
struct Deviation {
    const Event* expected = nullptr;  ///< Null: nothing more of this device.
    Event came;
};

/// What was expected and what came, below each other, with the line of the file.
std::string toText(const Deviation& deviation, const std::string& file);

/// A line that was never asked for.
std::string neverAsked(const Event& event, const std::string& file);

class Player
{
public:
    explicit Player(Session toPlay);
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;
    ~Player() = default;

    [[nodiscard]] const Session& played() const { return session; }

    /// What kind of device it is; nothing for one that is not in the session.
    [[nodiscard]] std::optional<Bus> busOf(const std::string& device) const;
    [[nodiscard]] std::vector<std::string> devices() const;

    /// The line of the session for an open, a setting or a transfer that the program asks for, its reads planned. Valid
    /// until the next call. An open or a setting that the session does not mention is accepted as it is, and a question
    /// for a setting answered from those made before.
    ///
    /// @return Null after a deviation.
    const Event* answer(const Event& asked);

    /// The line that answer() would take; null if it would take none.
    [[nodiscard]] const Event* find(const Event& asked) const;

    /// Goes past a line that may come next, as if the program had asked for it.
    void skip(const Event& line);

    /// The lines that may come next of a device; what has precedence is first.
    [[nodiscard]] std::vector<const Event*> next(const std::string& device) const;

    /// The lines that a serial port comes to when the program has sent these bytes: those that they complete, and those
    /// that are received after them.
    std::vector<const Event*> exchange(const std::string& name, const std::vector<uint8_t>& sent);

    /// What is left of a serial port's bytes becomes a deviation.
    void finish();

    /// The first ones; report() says how many more there were.
    [[nodiscard]] const std::vector<Deviation>& deviations() const { return deviated; }

    /// What must still come, in the order of the file.
    [[nodiscard]] std::vector<const Event*> left() const;

    /// Deviations and what was never asked for, with the lines of the file; empty if all was as in the session.
    [[nodiscard]] std::string report(const std::string& file) const;

private:
    struct Device {
        Bus bus = Bus::i2c;
        Track track;
        bool opens = false;                         // the session has lines of this kind
        std::set<Setting::Name> sets;               // likewise
        std::map<Setting::Name, Setting> settings;  // as they are now
        std::vector<uint8_t> sent;                  // by the program, and not yet a line
    };

    static void learn(Device& device, const Event& event);
    const Event* accept(Device& device, const Event& event);
    const Event* deviate(const Track& track, const Event& asked);

    Session session;
    std::map<std::string, Device> players;
    Event accepted;
    std::vector<Deviation> deviated;
    size_t moreDeviations = 0;
};

/// Whether the program asks for what the line has; each of them an event of the same device.
bool fits(const Event& line, const Event& asked);

/// All lines, in the order of the file.
std::vector<const Event*> eventsOf(const Session& session);

}  // namespace session
