#pragma once

#include "serialComm/SyncSerialBase.h"

#include <string.h>

#include <log4cplus/loglevel.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// The kernel's answer to one system call.
struct Answer {
    long result = 0;
    int errorNumber = 0;
    ByteArray bytes;   ///< Stored through the pointer that the call passes: bytes read, a mode, a speed, attributes.
    std::string text;  ///< Result of ptsname(); empty for a null pointer.
};

using Script = std::vector<Answer>;

inline Answer answers(long result, ByteArray bytes = {})
{
    return {result, 0, std::move(bytes), {}};
}
inline Answer fails(int errorNumber)
{
    return {-1, errorNumber, {}, {}};
}
inline Answer names(std::string slave)
{
    return {0, 0, {}, std::move(slave)};
}

/// While it lives, it answers the system calls of this thread from a script, and records them and the lines logged to
/// "SerialComm" as one text. An unexpected call and an unused answer fail the test.
///
/// Calls are written as by strace. Brackets enclose bytes of memory: those before the call and, after the result, those
/// that the kernel stored.
class ScriptedKernel
{
public:
    explicit ScriptedKernel(Script script);
    ScriptedKernel(const ScriptedKernel&) = delete;
    ScriptedKernel& operator=(const ScriptedKernel&) = delete;
    ~ScriptedKernel();

    /// Marks log lines from elsewhere with "(from FILE, FUNCTION)". Enter and Leave lines are recorded without the text
    /// of dbglog_scopedFunction() if it names the function that logs.
    void expectLinesFrom(std::string file, std::string function);

    /// Marks memory at this address with "caller's", so that a copy shows.
    void callersBuffer(const ByteArray& buffer);

    void returned(bool result);
    void returned(const ByteArray& result);
    void add(const std::string& line);

    [[nodiscard]] const std::string& timeline() const { return text; }

    // Used by the system calls and the appender.
    static ScriptedKernel* ofThisThread();
    bool passesOn = false;  ///< The real kernel answers.
    Answer next(const std::string& call);
    void finish(const std::string& call, const Answer& answer);
    [[nodiscard]] std::string memory(const void* address, size_t size) const;
    void logged(const std::string& line, const std::string& file, const std::string& function);

private:
    Script script;
    size_t used = 0;
    std::string text;
    std::string expectedFile;
    std::string expectedFunction;
    const void* caller = nullptr;
    ScriptedKernel* outer;  // active again after this one
};

/// Records the same text while the real kernel answers. The descriptors that open() returns are 7 or the next free one.
class RecordedKernel : public ScriptedKernel
{
public:
    RecordedKernel();
};

/// While it lives, each system call of this thread succeeds completely, and nothing is recorded.
class WillingKernel
{
public:
    WillingKernel();
    WillingKernel(const WillingKernel&) = delete;
    WillingKernel& operator=(const WillingKernel&) = delete;
    ~WillingKernel();
};

/// A ByteArray of any length without storage: any access to its bytes crashes. It serves to test lengths near 2^32,
/// which the library passes to the kernel without looking at the bytes.
class AbsentBytes
{
public:
    static inline uint8_t* const address = reinterpret_cast<uint8_t*>(4096);  // the kernel maps nothing this low

    explicit AbsentBytes(size_t size)
    {
        uint8_t* const pointers[] = {address, address + size, address + size};
        static_assert(sizeof pointers == sizeof bytes);  // begin, end, end of storage: as in libstdc++ and libc++
        memcpy(&bytes, pointers, sizeof bytes);
    }

    [[nodiscard]] const ByteArray& get() const { return reinterpret_cast<const ByteArray&>(bytes); }

private:
    std::aligned_storage_t<sizeof(ByteArray), alignof(ByteArray)> bytes{};
};

/// "19 80"; more than 16 equal bytes as "17*00"; those of an AbsentBytes as "17*..".
std::string hex(const void* bytes, size_t size);

/// Counts what this thread does.
struct Counts {
    int levelChecks = 0;      ///< Calls of Logger::isEnabledFor().
    int allocations = 0;      ///< Calls of operator new.
    int blocks = 0;           ///< Allocations minus deallocations.
    int scopesFormatted = 0;  ///< Calls of dbglog_scopedFunction().
};
Counts& counts();

/// Every successful scripted call, every log line and every level check set errno to this value, so that reading errno
/// too late shows.
constexpr int nonsense = 9999;

/// Sends the lines of the logger "SerialComm" to this thread's ScriptedKernel, if there is one.
void recordLog(log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL);
