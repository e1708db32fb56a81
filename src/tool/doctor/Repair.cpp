// The commands that repair.

#include "doctor/Checks.h"

#include "device/System.h"

#include <unistd.h>

namespace doctor
{

std::string asRoot(const std::string& command)
{
    return geteuid() == 0 ? command : "sudo " + command;
}

std::string writing(const std::string& word, const std::string& path)
{
    const std::string command = "echo " + word + " > " + path;
    return geteuid() == 0 ? command : "sudo sh -c '" + command + "'";
}

std::string ending(const std::string& unit, int process)
{
    return asRoot(exists("/run/systemd/system") ? "systemctl disable --now " + unit
                                                : "kill " + std::to_string(process));
}

}  // namespace doctor
