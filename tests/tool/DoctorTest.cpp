// The verbs doctor and list at folders with what /dev, /proc and /sys of other machines contain.

#include "FakeKernel.h"
#include "Folder.h"

#include "device/System.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace
{

namespace fs = std::filesystem;

/// A node that is in the folder as well, where directories are read.
struct FakeNode : FakeDevice {
    explicit FakeNode(unsigned int number) : majorOfNode(number) {}
    [[nodiscard]] unsigned int majorNumber() const override { return majorOfNode; }
    long ioctl(unsigned long /*request*/, void* /*argument*/) override { return -ENOTTY; }

    unsigned int majorOfNode;
};

/// A machine without any device.
struct Machine {
    Machine()
    {
        EXPECT_EQ(0, chmod(root.path.c_str(), 0755));
        systemRoot = root.path.c_str();
    }
    ~Machine() { systemRoot = ""; }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    [[nodiscard]] std::string at(const std::string& path) const { return root.path + path; }

    void file(const std::string& path, const std::string& content = "") const
    {
        fs::create_directories(fs::path{at(path)}.parent_path());
        std::ofstream{at(path)} << content;
    }

    /// Replaces a link that is there.
    void link(const std::string& path, const std::string& target) const
    {
        fs::create_directories(fs::path{at(path)}.parent_path());
        fs::remove(at(path));
        fs::create_symlink(target, at(path));
    }

    void remove(const std::string& path) const { fs::remove_all(at(path)); }

    std::shared_ptr<FakeNode> node(const std::string& path, unsigned int number)
    {
        file(path);
        auto made = std::make_shared<FakeNode>(number);
        kernel.devices[at(path)] = made;
        return made;
    }

    /// A node of the device tree.
    void treeNode(const std::string& path, const std::string& name, const std::string& status) const
    {
        const std::string folder = "/proc/device-tree" + path + '/';
        file(folder + "name", name + '\0');
        if (!status.empty())
            file(folder + "status", status + '\0');
    }

    void process(int id, const std::string& name, const std::string& terminal = "0") const
    {
        const std::string folder = "/proc/" + std::to_string(id);
        file(folder + "/comm", name + '\n');
        file(folder + "/stat", std::to_string(id) + " (" + name + ") S 1 7 7 " + terminal + " 7 0\n");
    }

    std::shared_ptr<FakeDevice> i2cBus()
    {
        file("/sys/bus/i2c/devices/i2c-4/name", "30ad0000.i2c\n");
        file("/sys/class/i2c-dev/i2c-4/dev", "89:4\n");
        return node("/dev/i2c-4", 89);
    }

    std::shared_ptr<FakeDevice> spiDevice()
    {
        fs::create_directories(at("/sys/class/spi_master/spi2"));
        file("/sys/bus/spi/devices/spi2.0/modalias", "spi:dh2228fv\n");
        file("/sys/class/spidev/spidev2.0/dev", "153:0\n");
        fs::create_directories(at("/sys/bus/spi/drivers/spidev"));
        link("/sys/bus/spi/devices/spi2.0/driver", "../../drivers/spidev");
        return node("/dev/spidev2.0", 153);
    }

    /// A USB adapter: its port is two levels below the device that has the ids.
    std::shared_ptr<FakeDevice> usbPort(const std::string& name = "ttyUSB0")
    {
        const std::string usb = "/sys/devices/usb1/1-1/";
        file(usb + "idVendor", "0403\n");
        file(usb + "idProduct", "6001\n");
        file(usb + "1-1:1.0/" + name + "/latency_timer", "1\n");
        link("/sys/class/tty/" + name + "/device", "../../../devices/usb1/1-1/1-1:1.0/" + name);
        file("/sys/class/tty/" + name + "/dev", "188:4\n");
        return node("/dev/" + name, 188);
    }

    Folder root;
    FakeKernel kernel;
};

std::string sudo(const std::string& command)
{
    return (geteuid() == 0 ? "" : "sudo ") + command;
}

std::string writing(const std::string& command)
{
    return geteuid() == 0 ? command : "sudo sh -c '" + command + "'";
}

/// The findings, without the user's line and the summary.
std::string findingsOf(const std::string& text)
{
    std::istringstream lines{text};
    std::string findings;
    int number = 0;
    for (std::string line; std::getline(lines, line);)
        findings += number++ < 2 ? "" : line + '\n';
    return findings;
}

using Change = std::function<void(Machine&)>;

struct Fault {
    const char* bus;
    Change cause;
    std::string findings;
    Change repair;  ///< what the command does
};

const std::string enabled = "/sys/bus/platform/devices/30ad0000.i2c";
const std::string driverOf20 = "/sys/bus/spi/devices/spi2.0/driver";
const std::string timer = "/sys/devices/usb1/1-1/1-1:1.0/ttyUSB0/latency_timer";

void withoutI2cDev(Machine& machine)
{
    machine.file("/sys/bus/i2c/devices/i2c-4/name", "30ad0000.i2c\n");
}

void getty(Machine& machine)
{
    machine.kernel.devices[machine.at("/proc/71/fd/0")] = machine.usbPort();
    machine.process(71, "agetty");
    machine.file("/proc/71/fd/0");
}

void endProcess71(Machine& machine)
{
    machine.kernel.devices.erase(machine.at("/proc/71/fd/0"));
    machine.remove("/proc/71");
}

TEST(Doctor, NamesEachFaultUntilItIsRepaired)
{
    const Fault faults[] = {
        {"i2c", withoutI2cDev,
         "i2c-dev: the driver is not loaded: no bus has a node\n  " + sudo("modprobe i2c-dev") + "\n",
         [](Machine& machine) { machine.i2cBus(); }},
        {"i2c",
         [](Machine& machine) {
             machine.treeNode("/soc@0", "soc", "");
             machine.treeNode("/soc@0/i2c@30ad0000", "i2c", "disabled");
             machine.treeNode("/soc@0/i2c-gpio", "i2c-gpio", "disabled");
         },
         "i2c@30ad0000: disabled in the device tree\n"
         "  fdtput -t s BOARD.dtb /soc@0/i2c@30ad0000 status okay\n  " +
             sudo("reboot") + "\n",
         [](Machine& machine) {
             machine.treeNode("/soc@0/i2c@30ad0000", "i2c", "okay");
             machine.i2cBus();
         }},
        {"i2c",
         [](Machine& machine) {
             machine.file(enabled + "/of_node/name", std::string{"i2c\0", 4});
         },
         "30ad0000.i2c: enabled in the device tree, but no driver is bound to it\n"
         "  " +
             sudo("modprobe \"$(cat " + enabled + "/modalias)\"") + "\n  " +
             writing("echo 30ad0000.i2c > /sys/bus/platform/drivers_probe") + "\n",
         [](Machine& machine) {
             machine.link(enabled + "/driver", "../../drivers/imx-i2c");
             fs::create_directories(machine.at("/sys/bus/platform/drivers/imx-i2c"));
             machine.i2cBus();
         }},
        {"i2c",
         [](Machine& machine) {
             machine.i2cBus();
             machine.remove("/dev/i2c-4");
         },
         "/dev/i2c-4: no such node, but the kernel has the device\n  " + sudo("mknod -m 660 /dev/i2c-4 c 89 4") + "\n",
         [](Machine& machine) { machine.node("/dev/i2c-4", 89); }},
        {"spi", [](Machine& machine) { machine.spiDevice()->accessError = EPERM; },
         "/dev/spidev2.0: forbidden by the device rules of this container or service\n"
         "  docker run --device /dev/spidev2.0 IMAGE\n",
         [](Machine& machine) { machine.kernel.devices[machine.at("/dev/spidev2.0")]->accessError = 0; }},
        {"spi",
         [](Machine& machine) {
             machine.spiDevice();
             machine.remove(driverOf20);
         },
         "spi2.0: no driver; its modalias is spi:dh2228fv\n"
         "  " +
             writing("echo spidev > /sys/bus/spi/devices/spi2.0/driver_override") +
             "\n"
             "  " +
             writing("echo spi2.0 > /sys/bus/spi/drivers/spidev/bind") + "\n",
         [](Machine& machine) { machine.link(driverOf20, "../../drivers/spidev"); }},
        {"spi",
         [](Machine& machine) {
             machine.spiDevice();
             machine.remove(driverOf20);
             machine.remove("/sys/bus/spi/drivers");
         },
         "spi2.0: no driver; its modalias is spi:dh2228fv\n"
         "  " +
             sudo("modprobe spidev") +
             "\n"
             "  " +
             writing("echo spidev > /sys/bus/spi/devices/spi2.0/driver_override") + "\n  " +
             writing("echo spi2.0 > /sys/bus/spi/drivers/spidev/bind") + "\n",
         [](Machine& machine) { machine.spiDevice(); }},
        {"uart", getty, "/dev/ttyUSB0: agetty (process 71) lets users log in there\n  " + sudo("kill 71") + "\n",
         endProcess71},
        {"uart",
         [](Machine& machine) {
             getty(machine);
             fs::create_directories(machine.at("/run/systemd/system"));
         },
         "/dev/ttyUSB0: agetty (process 71) lets users log in there\n  " +
             sudo("systemctl disable --now serial-getty@ttyUSB0") + "\n",
         endProcess71},
        {"uart",
         [](Machine& machine) {
             machine.usbPort();
             machine.process(71, "login", std::to_string(188 << 8 | 4));            // only its terminal can be seen
             machine.process(72, "login", std::to_string(1 << 20 | 188 << 8 | 4));  // minor number 0x104
         },
         "/dev/ttyUSB0: login (process 71) lets users log in there\n  " + sudo("kill 71") + "\n", endProcess71},
        {"uart",
         [](Machine& machine) {
             machine.usbPort();
             machine.file("/sys/class/tty/ttyS0/device/uevent");  // no USB
             machine.file("/sys/class/tty/ttyS0/dev", "4:64\n");
             machine.node("/dev/ttyS0", 4);
             machine.process(700, "ModemManager");
             machine.file("/run/udev/data/c188:4", "E:ID_BUS=usb\n");
         },
         "/dev/ttyUSB0: ModemManager (process 700) sends commands to it when it is plugged in\n  " + sudo("kill 700") +
             "\n",
         [](Machine& machine) { machine.file("/run/udev/data/c188:4", "E:ID_BUS=usb\nE:ID_MM_DEVICE_IGNORE=1\n"); }},
        {"uart",
         [](Machine& machine) {
             machine.usbPort();
             machine.file(timer, "16\n");
         },
         "/dev/ttyUSB0: latency timer at 16 ms: short answers come that late\n  " +
             writing("echo 1 > /sys/class/tty/ttyUSB0/device/latency_timer") + "\n",
         [](Machine& machine) { machine.file(timer, "1\n"); }},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.findings);
        Machine machine;
        fault.cause(machine);
        const Outcome before = tool(std::string{"doctor "} + fault.bus);
        EXPECT_EQ(1, before.status);
        EXPECT_EQ(fault.findings, findingsOf(before.out));
        EXPECT_EQ(1, tool("doctor").status);
        fault.repair(machine);
        const Outcome after = tool(std::string{"doctor "} + fault.bus);
        EXPECT_EQ(0, after.status);
        EXPECT_EQ("", findingsOf(after.out));
        EXPECT_EQ("", before.err + after.err);
    }
}

/// What is usual is reported and is no fault.
TEST(Doctor, NotesWhatIsNoFault)
{
    Machine machine;
    machine.treeNode("/soc@0", "soc", "");
    machine.treeNode("/soc@0/i2c@30ad0000", "i2c", "okay");
    machine.treeNode("/soc@0/i2c@30ae0000", "i2c", "disabled");
    machine.treeNode("/soc@0/pcie@1", "pcie", "disabled");
    machine.treeNode("/soc@0/pcie@1/i2c@2", "i2c", "disabled");
    machine.treeNode("/soc@0/serial@1", "serial", "disabled");
    machine.i2cBus();
    fs::create_directories(machine.at("/sys/bus/i2c/drivers/at24"));
    machine.link("/sys/bus/i2c/devices/4-0050/driver", "../../drivers/at24");
    machine.spiDevice();
    fs::create_directories(machine.at("/sys/class/spi_master/spi1"));
    machine.link("/sys/bus/spi/devices/spi2.1/driver", "../../drivers/spi-nor");
    fs::create_directories(machine.at("/sys/bus/spi/drivers/spi-nor"));
    machine.kernel.devices[machine.at("/proc/80/fd/3")] = machine.usbPort();
    machine.process(80, "minicom");
    machine.file("/proc/80/fd/3");
    machine.process(81, "gpsd", std::to_string(188 << 8 | 4));

    const Outcome outcome = tool("doctor");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ("i2c: 1 controller, 1 node, 0 faults\n"
              "device tree: disabled: i2c@30ae0000\n"
              "0x50 on /dev/i2c-4: in use by the kernel driver at24\n"
              "spi: 2 controllers, 1 node, 0 faults\n"
              "spi1: no device: the device tree names no chip on this bus\n"
              "spi2.1: in use by the kernel driver spi-nor\n"
              "uart: 1 controller, 1 node, 0 faults\n"
              "device tree: disabled: serial@1\n"
              "/dev/ttyUSB0: in use by minicom (process 80), gpsd (process 81)\n",
              outcome.out.substr(outcome.out.find('\n') + 1));
}

TEST(Doctor, MissesADeviceThatIsAskedFor)
{
    Machine machine;
    machine.spiDevice();
    EXPECT_EQ(0, tool("doctor").status);
    EXPECT_EQ(0, tool("doctor spi").status);
    const Outcome outcome = tool("doctor i2c");
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("serialcomm: no i2c controller here\n", outcome.err);
}

TEST(Doctor, WritesJson)
{
    Machine machine;
    machine.i2cBus()->accessError = EPERM;
    std::istringstream lines{tool("doctor i2c --json").out};
    std::string session;
    std::string summary;
    std::string finding;
    ASSERT_TRUE(std::getline(lines, session) && std::getline(lines, summary) && std::getline(lines, finding));
    EXPECT_EQ(nlohmann::json::array().type(), nlohmann::json::parse(session)["groups"].type());
    EXPECT_EQ(R"({"bus":"i2c","controllers":1,"nodes":1,"faults":1})", summary);
    EXPECT_EQ(R"({"bus":"i2c","finding":"device_rules","object":"/dev/i2c-4","fault":true,)"
              R"("cause":"forbidden by the device rules of this container or service",)"
              R"("repair":["docker run --device /dev/i2c-4 IMAGE"]})",
              finding);
    EXPECT_FALSE(std::getline(lines, finding));
}

TEST(List, WritesJson)
{
    Machine machine;
    machine.i2cBus()->accessError = EPERM;
    machine.usbPort();
    const Outcome outcome = tool("list --json");
    EXPECT_EQ(R"({"bus":"i2c","device":"/dev/i2c-4","description":"30ad0000.i2c","driver":null,"open":false,)"
              R"("reason":"device rules"})"
              "\n"
              R"({"bus":"uart","device":"/dev/ttyUSB0","description":null,"driver":null,"open":true,"reason":null,)"
              R"("by_id":null,"usb_id":"0403:6001","serial":null})"
              "\n",
              outcome.out);
    EXPECT_EQ("serialcomm: no spi device found\n", outcome.err);
}

/// This process as another user while it lives.
struct Nobody {
    explicit Nobody(const std::vector<gid_t>& groups)
    {
        EXPECT_EQ(0, setgroups(groups.size(), groups.data()) + setegid(65534) + seteuid(65534));
    }
    ~Nobody() { EXPECT_EQ(0, seteuid(0) + setegid(0) + setgroups(0, nullptr)); }
    Nobody(const Nobody&) = delete;
    Nobody& operator=(const Nobody&) = delete;
};

TEST(Doctor, SaysWhoMayOpenANode)
{
    const struct group* dialout = getgrnam("dialout");
    if (geteuid() != 0 || dialout == nullptr)
        GTEST_SKIP() << "only root becomes another user, and makes a node of the group dialout";
    const gid_t group = dialout->gr_gid;
    Machine machine;
    machine.usbPort();
    machine.kernel.devices.clear();  // a file whose permissions count
    const std::string node = machine.at("/dev/ttyUSB0");
    const struct {
        gid_t owner;
        mode_t mode;
        std::vector<gid_t> groups;
        std::string session;
        std::string findings;
    } cases[] = {
        {0,
         0600,
         {},
         "nogroup",
         "/dev/ttyUSB0: permission denied; only its owner may open it\n  sudo chown nobody /dev/ttyUSB0\n"},
        {group,
         0660,
         {},
         "nogroup",
         "/dev/ttyUSB0: permission denied; it belongs to group dialout\n"
         "  sudo usermod -aG dialout nobody\n  newgrp dialout\n"},
        {group,
         0640,
         {group},
         "nogroup, dialout",
         "/dev/ttyUSB0: permission denied; only its owner may open it\n  sudo chown nobody /dev/ttyUSB0\n"},
        {group, 0660, {group}, "nogroup, dialout", ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.mode);
        EXPECT_EQ(0, chown(node.c_str(), 0, row.owner) + chmod(node.c_str(), row.mode));
        const Nobody nobody{row.groups};
        const Outcome outcome = tool("doctor uart");
        EXPECT_EQ(row.findings.empty() ? 0 : 1, outcome.status);
        EXPECT_EQ("user nobody, groups of this session: " + row.session, outcome.out.substr(0, outcome.out.find('\n')));
        EXPECT_EQ(row.findings, findingsOf(outcome.out));
    }
}

}  // namespace
