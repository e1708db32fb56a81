#pragma once

#include "serialComm/SyncSerialBase.h"

#include <string.h>

#include <log4cplus/loglevel.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// What the kernel answers to one system call.
struct Answer {
    long result = 0;
    int errorNumber = 0;
    ByteArray bytes;   ///< What it stores where the call said: bytes read, a mode, a speed, saved attributes.
    std::string text;  ///< What ptsname() gives; empty for a null pointer.
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

/// While it lives, the system calls of this thread are answered from a script and kept, with the lines that reach the
/// logger "SerialComm" between them, as one text. A call beyond the script and an answer that nobody asked for fail the
/// test.
///
/// Calls stand as strace writes them; in brackets bytes in memory, at the time of the call and, after the result, those
/// that the kernel stored.
class ScriptedKernel
{
public:
    explicit ScriptedKernel(Script script);
    ScriptedKernel(const ScriptedKernel&) = delete;
    ScriptedKernel& operator=(const ScriptedKernel&) = delete;
    ~ScriptedKernel();

    /// Log lines from anywhere else show it: "(from FILE, FUNCTION)". In Enter and Leave lines the host's text for the
    /// function that logs is left out.
    void expectLinesFrom(std::string file, std::string function);

    /// Memory at this address is shown as "caller's": a copy of it is not.
    void callersBuffer(const ByteArray& buffer);

    void returned(bool result);
    void returned(const ByteArray& result);
    void add(const std::string& line);

    [[nodiscard]] const std::string& timeline() const { return text; }

    // For the system calls and the appender.
    static ScriptedKernel* ofThisThread();
    bool passesOn = false;  ///< The kernel itself answers.
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
    ScriptedKernel* outer;  // answers again after this one
};

/// The same with the kernel itself answering, in the same words: descriptors that open() gives are 7, or the next ones.
class RecordedKernel : public ScriptedKernel
{
public:
    RecordedKernel();
};

/// While it lives, each system call of this thread does all it was asked to, and nothing is kept.
class WillingKernel
{
public:
    WillingKernel();
    WillingKernel(const WillingKernel&) = delete;
    WillingKernel& operator=(const WillingKernel&) = delete;
    ~WillingKernel();
};

/// A ByteArray of any length without storage: whoever reads or writes a byte of it crashes. For lengths near 2^32,
/// which the library passes on without a look at the bytes.
class AbsentBytes
{
public:
    static inline uint8_t* const address = reinterpret_cast<uint8_t*>(4096);  // the kernel maps nothing this low

    explicit AbsentBytes(size_t size)
    {
        uint8_t* const pointers[] = {address, address + size, address + size};
        static_assert(sizeof pointers == sizeof bytes);  // begin, end and end of storage, as in each standard library
        memcpy(&bytes, pointers, sizeof bytes);
    }

    [[nodiscard]] const ByteArray& get() const { return reinterpret_cast<const ByteArray&>(bytes); }

private:
    std::aligned_storage_t<sizeof(ByteArray), alignof(ByteArray)> bytes{};
};

/// "19 80"; more than 16 equal bytes as "17*00"; those of an AbsentBytes as "17*..".
std::string hex(const void* bytes, size_t size);

/// What this thread did, counted.
struct Counts {
    int levelChecks = 0;      ///< A logger asked whether a level is enabled; each time errno is left at nonsense.
    int allocations = 0;      ///< Calls of operator new.
    int blocks = 0;           ///< Those less the calls of operator delete.
    int scopesFormatted = 0;  ///< Calls of dbglog_scopedFunction().
};
Counts& counts();

/// What every scripted call that succeeds, the appender and each level check leave in errno.
constexpr int nonsense = 9999;

/// Sends what the logger "SerialComm" gets to this thread's ScriptedKernel, if there is one.
void recordLog(log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL);
