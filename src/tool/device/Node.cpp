#include "device/Node.h"

#include "device/System.h"

#include <grp.h>
#include <pwd.h>
#include <string.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

namespace
{

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

Failure permissionDenied(const std::string& path, const NodeAccess& access)
{
    if (access.group.empty())
        return {CannotOpen, path + ": permission denied; only its owner may open it",
                "sudo, or a udev rule that gives it to a group"};
    const std::string user = userName();
    Failure failure{CannotOpen, path + ": permission denied; it belongs to group " + access.group};
    if (access.isMember)
        failure.hint = "log in again: " + user + " is in that group, but this session is older";
    else
        failure.hint.append("sudo usermod -aG ")
            .append(access.group)
            .append(" ")
            .append(user)
            .append(", then log in again");
    return failure;
}

}  // namespace

std::string userOf(const std::string& path)
{
    const std::vector<Process> users = usersOf(path);
    return users.empty() ? "" : users.front().text();
}

std::string otherUser(const std::string& path)
{
    const std::string user = userOf(path);
    return user.empty() ? "another program" : user;
}

int minorNumber(const std::string& path, unsigned int majorNumber)
{
    const auto node = statusOf(path);
    const bool fits = node && S_ISCHR(node->st_mode) && major(node->st_rdev) == majorNumber;
    return fits ? static_cast<int>(minor(node->st_rdev)) : -1;
}

NodeAccess accessTo(const std::string& path)
{
    const int error = accessError(path);
    if (error == EPERM)
        return {NodeAccess::Forbidden, {}};
    if (error != EACCES)
        return {error == 0 ? NodeAccess::Allowed : NodeAccess::Unknown, {}};
    const std::string group = openingGroup(path);
    return {NodeAccess::NoPermission, group, !group.empty() && isMember(userName(), group)};
}

std::string userName()
{
    const struct passwd* entry = getpwuid(geteuid());
    return entry == nullptr ? std::to_string(geteuid()) : entry->pw_name;
}

Failure openFailure(const std::string& path, int error, const NodeKind& kind)
{
    const auto node = statusOf(path);
    if (!node) {
        if (errno != ENOENT && errno != ENOTDIR)
            return {CannotOpen, path + ": " + strerror(errno)};
        const std::vector<Node> present = kind.nodes();
        const std::string others = kind.others;
        return {CannotOpen,
                path + ": no such device; " +
                    (present.empty() ? "no " + others : others + ": " + names(present, kind.prefix)),
                kind.missingHint};
    }
    const NodeAccess access = accessTo(path);
    if (access.verdict == NodeAccess::NoPermission)
        return permissionDenied(path, access);
    if (!S_ISCHR(node->st_mode) || (kind.majorNumber != 0 && major(node->st_rdev) != kind.majorNumber))
        return {CannotOpen, path + " is not " + kind.name};
    if (access.verdict == NodeAccess::Forbidden)
        return {CannotOpen, path + ": forbidden by the device rules of this container or service", "serialcomm doctor"};
    if (error == EBUSY)
        return {CannotOpen, path + " is in use by " + otherUser(path)};
    return {CannotOpen, path + ": " + strerror(error)};
}
