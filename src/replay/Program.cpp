#include "Program.h"

#include "Protocol.h"

#include <elf.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace replay
{

namespace
{

constexpr int cannotRun = 126;
constexpr int notFound = 127;

std::atomic<pid_t> current{0};
struct Disposition {
    int signal;
    struct sigaction before;
};
Disposition dispositions[] = {{SIGINT, {}}, {SIGQUIT, {}}, {SIGTERM, {}}, {SIGHUP, {}}};

void passOn(int signal)
{
    if (current > 0)
        ::kill(current, signal);
}

bool isShared(int signal)
{
    return signal == SIGINT || signal == SIGQUIT;  // the terminal sends them to the program as well
}

std::string foundInPath(const std::string& program)
{
    if (program.find('/') != std::string::npos)
        return program;
    const char* variable = getenv("PATH");
    std::istringstream path{variable != nullptr ? variable : "/usr/bin:/bin"};
    for (std::string folder; std::getline(path, folder, ':');) {
        std::string candidate = folder.empty() ? "." : folder;
        candidate += '/';
        candidate += program;
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return program;
}

/// A program of the ELF format without a dynamic linker.
bool isStatic(const std::string& path)
{
    std::ifstream file{path, std::ios::binary};
    Elf64_Ehdr header = {};
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    if (!file || memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64)
        return false;
    for (uint16_t i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment = {};
        file.seekg(static_cast<std::streamoff>(header.e_phoff + size_t{i} * header.e_phentsize));
        file.read(reinterpret_cast<char*>(&segment), sizeof segment);
        if (!file || segment.p_type == PT_INTERP)
            return false;
    }
    return true;
}

/// This process's environment, with what the preloaded library needs in front of what was there.
std::vector<std::string> environmentWith(const std::string& library, const std::string& socketName)
{
    const std::pair<std::string, std::string> ours[] = {
        {"LD_PRELOAD", library},
        {"ASAN_OPTIONS", "verify_asan_link_order=0"},  // its own library need not come first
        {socketVariable, socketName},
    };
    std::vector<std::string> environment;
    for (char** each = environ; *each != nullptr; ++each) {
        const std::string entry = *each;
        const std::string name = entry.substr(0, entry.find('='));
        if (std::none_of(std::begin(ours), std::end(ours), [&](const auto& our) { return our.first == name; }))
            environment.push_back(entry);
    }
    for (const auto& [name, value] : ours) {
        const char* before = getenv(name.c_str());
        const bool keep = before != nullptr && *before != '\0' && name != socketVariable;
        std::string entry = name;
        entry.append(1, '=').append(value);
        if (keep)
            entry.append(1, ':').append(before);
        environment.push_back(entry);
    }
    return environment;
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

/// In the child.
[[noreturn]] void execute(const Command& command, const std::vector<std::string>& environment, Program::Output output,
                          int errorPipe)
{
    for (const Disposition& each : dispositions)
        sigaction(each.signal, &each.before, nullptr);
    signal(SIGPIPE, SIG_DFL);  // a program would inherit that this one ignores it
    if (output == Program::Output::dropped) {
        setpgid(0, 0);
        const int sink = memfd_create("output", MFD_CLOEXEC);  // where there is no /dev/null
        for (int stream = 0; stream <= 2; ++stream)
            dup2(sink, stream);
    }
    std::vector<std::string> words = {command.program};
    words.insert(words.end(), command.arguments.begin(), command.arguments.end());
    execvpe(command.program.c_str(), pointersTo(words).data(), pointersTo(environment).data());
    const int error = errno;
    if (write(errorPipe, &error, sizeof error) < 0)
        _exit(cannotRun);
    _exit(notFound);
}

}  // namespace

std::string toText(const Command& command)
{
    std::vector<std::string> words = {command.program};
    words.insert(words.end(), command.arguments.begin(), command.arguments.end());
    std::string text;
    for (const std::string& word : words) {
        const bool isPlain = !word.empty() && std::all_of(word.begin(), word.end(), [](char character) {
            return character > ' ' && character < 0x7f && strchr("'\"\\$`*?[]{}()<>|&;!#~", character) == nullptr;
        });
        text += text.empty() ? "" : " ";
        if (isPlain) {
            text += word;
            continue;
        }
        text += '\'';
        for (const char character : word)
            text += character >= ' ' && character != 0x7f ? character : '?';
        text += '\'';
    }
    return text;
}

std::string preloadLibrary()
{
    char path[PATH_MAX] = {};
    if (readlink("/proc/self/exe", path, sizeof path - 1) < 0)
        throw Problem("the folder of this program cannot be found: /proc is not mounted", 1);
    const std::string self = path;
    const std::string folder = self.substr(0, self.rfind('/') + 1);
    for (const char* place : {SERIALCOMM_PRELOAD_INSTALLED, SERIALCOMM_PRELOAD_BUILT}) {
        if (access((folder + place).c_str(), R_OK) == 0)
            return folder + place;
    }
    throw Problem(folder + SERIALCOMM_PRELOAD_INSTALLED + ": " + strerror(errno) + "; it belongs to the installation",
                  1);
}

void warnNotLoaded(const Command& command)
{
    std::fprintf(
        stderr,
        "serialcomm: %s: does not load the preloaded library, so its calls were not seen; it is set-user-ID, or "
        "its interpreter is linked statically or for another machine\n",
        toText({command.program, {}}).c_str());
}

Program::Program(const Command& command, const std::string& library, const std::string& socketName, Output output)
    : ownGroup(output == Output::dropped)
{
    if (isStatic(foundInPath(command.program)))
        throw Problem(command.program + ": is linked statically, so its calls cannot be seen; link it dynamically", 2);
    start(command, environmentWith(library, socketName), output);
}

Program::Program(const Command& command)
{
    std::vector<std::string> environment;
    for (char** each = environ; *each != nullptr; ++each)
        environment.emplace_back(*each);
    start(command, environment, Output::shown);
}

void Program::start(const Command& command, const std::vector<std::string>& environment, Output output)
{
    int errors[2];
    if (pipe2(errors, O_CLOEXEC) != 0)
        throw Problem(std::string{"a pipe: "} + strerror(errno), 1);
    for (Disposition& each : dispositions) {
        struct sigaction action = {};
        action.sa_handler = isShared(each.signal) ? SIG_IGN : passOn;
        action.sa_flags = SA_RESTART;
        sigaction(each.signal, &action, &each.before);
    }

    process = fork();
    if (process == 0)
        execute(command, environment, output, errors[1]);
    close(errors[1]);

    current = process;
    int error = process < 0 ? errno : 0;
    if (process > 0 && read(errors[0], &error, sizeof error) != static_cast<ssize_t>(sizeof error))
        error = 0;
    close(errors[0]);
    if (error != 0) {
        wait();
        throw Problem(command.program + ": " + strerror(error), error == ENOENT ? notFound : cannotRun);
    }
    processDescriptor = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    if (processDescriptor < 0) {
        const std::string problem = strerror(errno);
        kill();
        wait();
        throw Problem("pidfd_open: " + problem + "; Linux 5.3 or later has it", 1);
    }
}

Program::~Program()
{
    if (!ended) {
        kill();
        wait();
    }
    if (processDescriptor >= 0)
        close(processDescriptor);
}

int Program::wait()
{
    int status = 0;
    while (process > 0 && !ended && waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    ended = true;
    current = 0;
    for (const Disposition& each : dispositions)
        sigaction(each.signal, &each.before, nullptr);
    signalNumber = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return signalNumber != 0 ? 128 + signalNumber : WEXITSTATUS(status);
}

void Program::kill()
{
    if (!ended && process > 0)
        ::kill(ownGroup ? -process : process, SIGKILL);
}

}  // namespace replay
