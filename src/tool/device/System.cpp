#include "device/System.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <sstream>
#include <utility>

const char* systemRoot = "";

namespace
{

std::string rooted(const std::string& path)
{
    return systemRoot + path;
}

/// The folders in /proc of all processes other than this one.
std::vector<std::string> processFolders()
{
    std::vector<std::string> folders;
    for (const std::string& number : namesBelow("/proc", "")) {
        const bool isProcess = number.find_first_not_of("0123456789") == std::string::npos;
        if (isProcess && number != std::to_string(getpid()))
            folders.push_back("/proc/" + number);
    }
    return folders;
}

Process processOf(const std::string& folder)
{
    return {static_cast<pid_t>(std::stoi(folder.substr(folder.rfind('/') + 1))), firstLine(folder + "/comm")};
}

/// The device number of a process's controlling terminal; 0 where it has none.
dev_t terminalOf(const std::string& folder)
{
    const std::string line = firstLine(folder + "/stat");
    const size_t behindName = line.rfind(')');
    if (behindName == std::string::npos)
        return 0;
    std::istringstream fields{line.substr(behindName + 1)};
    std::string state;
    int parent = 0;
    int group = 0;
    int session = 0;
    unsigned int number = 0;
    fields >> state >> parent >> group >> session >> number;
    return makedev(number >> 8 & 0xfff, (number & 0xff) | (number >> 12 & 0xfff00));
}

enum class Use { None, Open, Locked };

/// What the kernel says about an open file names the locks that were taken through it.
Use useOf(const std::string& folder, dev_t device)
{
    Use use = terminalOf(folder) == device ? Use::Open : Use::None;
    for (const std::string& descriptor : namesBelow(folder + "/fd", "")) {
        const auto open = statusOf(std::string{folder}.append("/fd/").append(descriptor));
        if (!open || !S_ISCHR(open->st_mode) || open->st_rdev != device)
            continue;
        if (contentOf(std::string{folder}.append("/fdinfo/").append(descriptor)).find("\nlock:") != std::string::npos)
            return Use::Locked;
        use = Use::Open;
    }
    return use;
}

}  // namespace

bool exists(const std::string& path)
{
    return access(rooted(path).c_str(), F_OK) == 0;
}

std::optional<struct stat> statusOf(const std::string& path)
{
    struct stat status {
    };
    if (stat(rooted(path).c_str(), &status) != 0)
        return {};
    return status;
}

int accessError(const std::string& path)
{
    return euidaccess(rooted(path).c_str(), R_OK | W_OK) == 0 ? 0 : errno;
}

std::vector<std::string> namesBelow(const std::string& directory, const std::string& prefix)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream{opendir(rooted(directory).c_str()), closedir};
    while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (name.compare(0, prefix.size(), prefix) == 0 && name[0] != '.')
            names.push_back(name.substr(prefix.size()));
    }
    std::sort(names.begin(), names.end(), [](const std::string& left, const std::string& right) {
        return strverscmp(left.c_str(), right.c_str()) < 0;
    });
    return names;
}

std::string contentOf(const std::string& path)
{
    std::array<char, 4096> text{};  // sysfs gives at most a page
    const int fd = open(rooted(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const ssize_t length = read(fd, text.data(), text.size());
    if (fd >= 0)
        close(fd);
    return {text.data(), length > 0 ? static_cast<size_t>(length) : 0};
}

std::string firstLine(const std::string& path)
{
    const std::string content = contentOf(path);
    return content.substr(0, std::min(content.find('\n'), content.find('\0')));
}

std::string linkTarget(const std::string& path)
{
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(rooted(path).c_str(), target.data(), target.size());
    const std::string text(target.data(), length > 0 ? static_cast<size_t>(length) : 0);
    return text.substr(text.rfind('/') + 1);
}

std::string realPath(const std::string& path)
{
    std::array<char, PATH_MAX> target{};
    return realpath(rooted(path).c_str(), target.data()) == nullptr ? "" : target.data() + strlen(systemRoot);
}

std::string Process::text() const
{
    return name + " (process " + std::to_string(id) + ")";
}

std::vector<Process> usersOf(const std::string& path)
{
    const auto node = statusOf(path);
    std::vector<Process> users;
    if (!node || !S_ISCHR(node->st_mode))
        return users;
    std::ptrdiff_t locked = 0;
    for (const std::string& folder : processFolders()) {
        const Use use = useOf(folder, node->st_rdev);
        if (use == Use::Locked)
            users.insert(users.begin() + locked++, processOf(folder));
        else if (use == Use::Open)
            users.push_back(processOf(folder));
    }
    return users;
}

std::vector<Process> processesNamed(const std::string& name)
{
    std::vector<Process> processes;
    for (const std::string& folder : processFolders()) {
        Process process = processOf(folder);
        if (process.name == name)
            processes.push_back(std::move(process));
    }
    return processes;
}
