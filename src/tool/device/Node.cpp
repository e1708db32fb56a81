#include "device/Node.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <memory>
#include <optional>
#include <utility>

namespace
{

bool isProcessNumber(const std::string& name)
{
    return name.find_first_not_of("0123456789") == std::string::npos;
}

std::optional<struct stat> statusOf(const std::string& path)
{
    struct stat status {
    };
    if (stat(path.c_str(), &status) != 0)
        return {};
    return status;
}

/// /proc/PID/fdinfo/FD lists the locks that were taken through the descriptor.
bool holdsLock(const std::string& fdinfo)
{
    std::ifstream file{fdinfo};
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, 5, "lock:") == 0)
            return true;
    }
    return false;
}

std::string names(const std::vector<Node>& nodes, const std::string& prefix)
{
    std::string text;
    for (const Node& node : nodes)
        text.append(text.empty() ? "" : ", ").append(node.path.substr(prefix.size()));
    return text;
}

/// The group that may open the node; empty if only the owner may.
std::string openingGroup(const std::string& path)
{
    const auto node = statusOf(path);
    const mode_t both = S_IRGRP | S_IWGRP;
    if (!node || node->st_gid == 0 || (node->st_mode & both) != both)
        return {};
    const struct group* group = getgrgid(node->st_gid);
    return group == nullptr ? std::to_string(node->st_gid) : group->gr_name;
}

bool isMember(const std::string& user, const std::string& groupName)
{
    const struct group* group = getgrnam(groupName.c_str());
    for (char** member = group == nullptr ? nullptr : group->gr_mem; member != nullptr && *member != nullptr;
         ++member) {
        if (user == *member)
            return true;
    }
    return false;
}

Failure permissionDenied(const std::string& path)
{
    const std::string group = openingGroup(path);
    if (group.empty())
        return {CannotOpen, path + ": permission denied; only its owner may open it",
                "sudo, or a udev rule that gives it to a group"};
    const struct passwd* entry = getpwuid(geteuid());
    const std::string user = entry == nullptr ? "USER" : entry->pw_name;
    Failure failure{CannotOpen, path + ": permission denied; it belongs to group " + group};
    if (isMember(user, group))
        failure.hint = "log in again: " + user + " is in that group, but this session is older";
    else
        failure.hint.append("sudo usermod -aG ").append(group).append(" ").append(user).append(", then log in again");
    return failure;
}

}  // namespace

std::vector<std::string> namesBelow(const std::string& directory, const std::string& prefix)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream{opendir(directory.c_str()), closedir};
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

std::string firstLine(const std::string& path)
{
    std::array<char, 4096> text{};  // sysfs gives at most a page
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const ssize_t length = read(fd, text.data(), text.size());
    if (fd >= 0)
        close(fd);
    const std::string content(text.data(), length > 0 ? static_cast<size_t>(length) : 0);
    return content.substr(0, content.find('\n'));
}

std::string otherUser(const std::string& path)
{
    const auto node = statusOf(path);
    std::string user = "another program";
    for (const std::string& process : namesBelow("/proc", "")) {
        if (!node || !isProcessNumber(process) || process == std::to_string(getpid()))
            continue;
        const std::string folder = "/proc/" + process;
        for (const std::string& descriptor : namesBelow(folder + "/fd", "")) {
            const auto open = statusOf(std::string{folder}.append("/fd/").append(descriptor));
            if (!open || !S_ISCHR(open->st_mode) || open->st_rdev != node->st_rdev)
                continue;
            user = firstLine(folder + "/comm").append(" (process ").append(process).append(")");
            if (holdsLock(std::string{folder}.append("/fdinfo/").append(descriptor)))
                return user;
        }
    }
    return user;
}

int minorNumber(const std::string& path, unsigned int majorNumber)
{
    const auto node = statusOf(path);
    const bool fits = node && S_ISCHR(node->st_mode) && major(node->st_rdev) == majorNumber;
    return fits ? static_cast<int>(minor(node->st_rdev)) : -1;
}

std::string mayOpen(const std::string& path)
{
    if (euidaccess(path.c_str(), R_OK | W_OK) == 0)
        return "yes";
    const std::string group = openingGroup(path);
    return group.empty() ? "no: owner only" : "no: group " + group;
}

Failure openFailure(const std::string& path, int error, const NodeKind& kind)
{
    struct stat node {
    };
    if (stat(path.c_str(), &node) != 0) {
        if (errno != ENOENT && errno != ENOTDIR)
            return {CannotOpen, path + ": " + strerror(errno)};
        const std::vector<Node> present = kind.nodes();
        const std::string others = kind.others;
        return {CannotOpen,
                path + ": no such device; " +
                    (present.empty() ? "no " + others : others + ": " + names(present, kind.prefix)),
                kind.missingHint};
    }
    if (euidaccess(path.c_str(), R_OK | W_OK) != 0 && errno == EACCES)
        return permissionDenied(path);
    if (!S_ISCHR(node.st_mode) || (kind.majorNumber != 0 && major(node.st_rdev) != kind.majorNumber))
        return {CannotOpen, path + " is not " + kind.name};
    if (error == EBUSY)
        return {CannotOpen, path + " is in use by " + otherUser(path)};
    return {CannotOpen, path + ": " + strerror(error)};
}
