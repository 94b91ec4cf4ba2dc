// SPDX-License-Identifier: MIT
#include "base/propertylist.h"
#include "desktop/reportformats.h"
#include "os/services.h"
#include "posix/systemfiles.h"
#include "profile/measure.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QElapsedTimer>

#include <clocale>

using namespace Qt::StringLiterals;
using namespace tx::machine;
using tx::test::runProcess;

namespace {

/// A machine made of files.
class SystemReport : public tx::test::FrameworkTest {
protected:
    void file(const QString &name, const QByteArray &content) {
        tx::test::writeFile(path(u"root"_s) + name, content);
    }
    Source source(const char *architecture = "x86_64") const {
        return {path(u"root"_s).toStdString(), architecture};
    }
    static QVariantMap first(const Section &section) {
        const auto list = tx::readPropertyList(QByteArray::fromStdString(asPropertyList({section})));
        EXPECT_TRUE(bool(list)) << list.error().toString().toStdString();
        const QVariantList items = list->toList().value(0).toMap()[u"_items"_s].toList();
        return items.value(0).toMap();
    }
    QVariantMap hardwareOf(const char *architecture = "x86_64") const {
        return first(hardware(source(architecture)));
    }
    void memoryBlocks(int online, int offline) {
        file(u"/sys/devices/system/memory/block_size_bytes"_s, "8000000\n");
        for (int i = 0; i < online + offline; ++i)
            file(u"/sys/devices/system/memory/memory%1/state"_s.arg(i),
                 i < online ? "online\n" : "offline\n");
    }
};

const char fourCores[] =
    "processor\t: 0\nmodel name\t: Intel(R) Core(TM) i7-1185G7 @ 3.00GHz\ncpu MHz\t: 1200.5\n"
    "physical id\t: 0\ncore id\t: 0\n\nprocessor\t: 1\nphysical id\t: 0\ncore id\t: 1\n\n"
    "processor\t: 2\nphysical id\t: 0\ncore id\t: 0\n\nprocessor\t: 3\nphysical id\t: 0\ncore id\t: 1\n";

TEST_F(SystemReport, LaptopIsDescribed) {
    file(u"/sys/class/dmi/id/product_name"_s, "20XW0026GE\n");
    file(u"/sys/class/dmi/id/product_family"_s, "ThinkPad X1 Carbon Gen 9\n");
    file(u"/sys/class/dmi/id/product_serial"_s, "SECRET\n");
    file(u"/sys/class/dmi/id/product_uuid"_s, "SECRET\n");
    file(u"/proc/cpuinfo"_s, fourCores);
    memoryBlocks(128, 3);
    EXPECT_EQ(hardwareOf(), (QVariantMap{{u"_name"_s, u"hardware_overview"_s},
                                         {u"machine_name"_s, u"ThinkPad X1 Carbon Gen 9"_s},
                                         {u"machine_model"_s, u"20XW0026GE"_s},
                                         {u"cpu_type"_s, u"Intel(R) Core(TM) i7-1185G7 @ 3.00GHz"_s},
                                         {u"current_processor_speed"_s, u"3 GHz"_s},
                                         {u"number_processors"_s, 2},
                                         {u"physical_memory"_s, u"16 GB"_s}}))
        << "and nothing that tells one machine from another";
}

TEST_F(SystemReport, NamesThatMakersDidNotGiveAreLeftOut) {
    for (const char *placeholder :
         {"To Be Filled By O.E.M.\n", "Default string\n", "System Product Name\n", " \n", "None"}) {
        file(u"/sys/class/dmi/id/product_family"_s, placeholder);
        file(u"/sys/class/dmi/id/product_name"_s, "Model 7\n");
        EXPECT_EQ(hardwareOf()[u"machine_name"_s], u"Model 7"_s) << placeholder;
        file(u"/sys/class/dmi/id/product_name"_s, placeholder);
        EXPECT_FALSE(hardwareOf().contains(u"machine_name"_s)) << placeholder;
        EXPECT_FALSE(hardwareOf().contains(u"machine_model"_s)) << placeholder;
    }
    file(u"/proc/device-tree/model"_s, QByteArray("Raspberry Pi 4 Model B Rev 1.4\0", 31));
    EXPECT_EQ(hardwareOf("aarch64")[u"machine_model"_s], u"Raspberry Pi 4 Model B Rev 1.4"_s);
}

TEST_F(SystemReport, TextsAreFitForAPropertyList) {
    file(u"/sys/class/dmi/id/product_name"_s, QByteArray("A\x01<&>\xFF\xC3\xA4") + QByteArray(500, 'x'));
    const QString model = hardwareOf()[u"machine_model"_s].toString();
    EXPECT_TRUE(model.startsWith(u"A<&>?ä"_s)) << model.toStdString();
    EXPECT_LE(model.size(), 200);
}

TEST_F(SystemReport, SpeedComesFromTheBestSource) {
    const QString frequencies = u"/sys/devices/system/cpu/cpu0/cpufreq/"_s;
    const auto speed = [&] { return hardwareOf()[u"current_processor_speed"_s].toString(); };
    EXPECT_EQ(speed(), QString());
    file(u"/proc/cpuinfo"_s, "model name : AMD EPYC\ncpu MHz : 2596.122\n");
    EXPECT_EQ(speed(), u"2.6 GHz"_s);
    file(frequencies + u"cpuinfo_max_freq"_s, "4500000\n");
    EXPECT_EQ(speed(), u"4.5 GHz"_s);
    file(u"/proc/cpuinfo"_s, "model name : Intel i5 @ 2.40GHz\ncpu MHz : 800\n");
    EXPECT_EQ(speed(), u"2.4 GHz"_s);
    file(frequencies + u"base_frequency"_s, "3000000\n");
    EXPECT_EQ(speed(), u"3 GHz"_s);
}

TEST_F(SystemReport, CoresWithoutTopologyAreCountedAsProcessors) {
    file(u"/proc/cpuinfo"_s, "processor : 0\n\nprocessor : 1\n\nprocessor : 2\n");
    EXPECT_EQ(hardwareOf()[u"number_processors"_s], 3);
}

TEST_F(SystemReport, ArmProcessorsHaveFastAndEconomicalCores) {
    file(u"/proc/cpuinfo"_s, "processor : 0\nCPU implementer : 0x41\nCPU part : 0xd08\n");
    for (int i = 0; i < 10; ++i)
        file(u"/sys/devices/system/cpu/cpu%1/cpu_capacity"_s.arg(i), i < 2 ? "400\n" : "1024\n");
    file(u"/sys/devices/system/cpu/cpufreq/boost"_s, "1\n");
    const QVariantMap item = hardwareOf("aarch64");
    EXPECT_EQ(item[u"chip_type"_s], u"ARM Cortex-A72"_s);
    EXPECT_EQ(item[u"number_processors"_s], u"proc 10:8:2"_s);
    EXPECT_FALSE(item.contains(u"cpu_type"_s));
    file(u"/proc/cpuinfo"_s, "CPU implementer : 0x99\nCPU part : 0x001\n");
    EXPECT_EQ(hardwareOf("aarch64")[u"chip_type"_s], u"ARM 0x99/0x001"_s);
    file(u"/proc/cpuinfo"_s, "CPU implementer : 0x99\nHardware : BCM2711\n");
    EXPECT_EQ(hardwareOf("aarch64")[u"chip_type"_s], u"BCM2711"_s);
}

TEST_F(SystemReport, MemoryIsWhatIsBuiltIn) {
    const auto memory = [&] { return hardwareOf()[u"physical_memory"_s].toString(); };
    EXPECT_EQ(memory(), QString());
    const std::pair<const char *, QString> cases[] = {{"MemTotal:       16265068 kB\n", u"16 GB"_s},
                                                      {"MemTotal: 3884000 kB\n", u"4 GB"_s},
                                                      {"MemTotal: 490000 kB\n", u"512 MB"_s}};
    for (const auto &[text, expected] : cases) {
        file(u"/proc/meminfo"_s, text);
        EXPECT_EQ(memory(), expected) << text;
    }
    memoryBlocks(12, 0);
    EXPECT_EQ(memory(), u"1536 MB"_s) << "the blocks tell exactly";
}

const char pciIds[] =
    "# comment\n1002  Advanced Micro Devices, Inc. [AMD/ATI]\n\t73df  Navi 22 [Radeon RX 6700 XT]\n"
    "\t\t1002 0e36  Board\n8086  Intel Corporation\n\t9a49  TigerLake-LP GT2 [Iris Xe Graphics]\n"
    "\t9a4a  Plain Graphics\n10de  NVIDIA Corporation\n";

TEST_F(SystemReport, ModelsAreNamedAsPeopleKnowThem) {
    using Names = std::pair<std::string, std::string>;
    EXPECT_EQ(pciNames(pciIds, "8086", "9a49"), Names("Intel Iris Xe Graphics", "Intel"));
    EXPECT_EQ(pciNames(pciIds, "8086", "9a4a"), Names("Intel Plain Graphics", "Intel"));
    EXPECT_EQ(pciNames(pciIds, "1002", "73df"), Names("AMD/ATI Radeon RX 6700 XT", "AMD/ATI"));
    EXPECT_EQ(pciNames(pciIds, "1002", "9a49"), Names("AMD/ATI 9a49", "AMD/ATI")) << "another maker's number";
    EXPECT_EQ(pciNames(pciIds, "10de", "2204"), Names("NVIDIA 2204", "NVIDIA"));
    EXPECT_EQ(pciNames(pciIds, "0e36", "0000"), Names("0e36:0000", "0e36")) << "a subsystem is no maker";
    EXPECT_EQ(pciNames("", "8086", "9a49"), Names("8086:9a49", "8086"));
}

TEST_F(SystemReport, GraphicsProcessorsAndTheirScreens) {
    const QString first = u"/sys/bus/pci/devices/0000:00:02.0"_s;
    const QString second = u"/sys/bus/pci/devices/0000:03:00.0"_s;
    file(u"/usr/share/misc/pci.ids"_s, pciIds);
    file(u"/sys/bus/pci/devices/0000:00:01.0/class"_s, "0x020000\n");
    file(first + u"/class"_s, "0x030000\n");
    file(first + u"/vendor"_s, "0x8086\n");
    file(first + u"/device"_s, "0x9a49\n");
    file(first + u"/drm/card0/card0-eDP-1/status"_s, "connected\n");
    file(first + u"/drm/card0/card0-eDP-1/modes"_s, "1920x1200\n1600x900\n");
    file(first + u"/drm/card0/card0-DP-1/status"_s, "disconnected\n");
    file(second + u"/class"_s, "0x038000\n");
    file(second + u"/vendor"_s, "0x1002\n");
    file(second + u"/device"_s, "0x73df\n");
    file(second + u"/mem_info_vram_total"_s, "12868124672\n");
    const QByteArray xml = QByteArray::fromStdString(asPropertyList({displays(source())}));
    const QVariantList items = tx::readPropertyList(xml)->toList().value(0).toMap()[u"_items"_s].toList();
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].toMap(),
              (QVariantMap{{u"_name"_s, u"Intel Iris Xe Graphics"_s},
                           {u"sppci_model"_s, u"Intel Iris Xe Graphics"_s},
                           {u"sppci_device_type"_s, u"spdisplays_gpu"_s},
                           {u"spdisplays_vendor"_s, u"Intel"_s},
                           {u"spdisplays_ndrvs"_s,
                            QVariantList{QVariantMap{{u"_name"_s, u"eDP-1"_s},
                                                     {u"_spdisplays_resolution"_s, u"1920x1200"_s}}}}}));
    EXPECT_EQ(items[1].toMap()[u"spdisplays_vram"_s], u"12272 MB"_s);
    TXUpdateSystemProfile profile(TXUpdateSystemProfile::Contents::Empty);
    tx::readHardwareAndDisplays(profile, tx::Processor::X86, *tx::readPropertyList(xml));
    EXPECT_EQ(profile.GPUType(), u"AMD/ATI Radeon RX 6700 XT"_s);
    EXPECT_EQ(profile.VRAM(), 12272U);
}

TEST_F(SystemReport, ProfileInTheProcessHasTheValuesOfThePropertyList) {
    const QString device = u"/sys/bus/pci/devices/0000:00:02.0"_s;
    file(u"/sys/class/dmi/id/product_name"_s, "A <&> \xC3\xA4\n");
    file(u"/proc/cpuinfo"_s, fourCores);
    file(u"/usr/share/misc/pci.ids"_s, pciIds);
    memoryBlocks(128, 0);
    file(device + u"/class"_s, "0x030000\n");
    file(device + u"/vendor"_s, "0x8086\n");
    file(device + u"/device"_s, "0x9a49\n");
    file(device + u"/mem_info_vram_total"_s, "8589934592\n");
    file(device + u"/drm/card0/card0-eDP-1/status"_s, "connected\n");
    file(device + u"/drm/card0/card0-eDP-1/modes"_s, "1920x1200\n");
    for (const char *architecture : {"x86_64", "aarch64"}) {
        const std::vector<Section> report = sections(source(architecture));
        const auto written = tx::readPropertyList(QByteArray::fromStdString(asPropertyList(report)));
        ASSERT_TRUE(bool(written));
        // Values alone would compare equal though one is a number and the other a string.
        EXPECT_EQ(tx::writePropertyList(tx::sectionsFrom(report)), tx::writePropertyList(*written));
        EXPECT_EQ(report[0].items[0].members.size(), architecture == std::string("x86_64") ? 7U : 5U);
    }
}

/// A locale that writes a comma in numbers, such as that of most applications on the continent.
class CommaLocale : public SystemReport {
protected:
    CommaLocale() {
        file(u"/locale/characters"_s,
             "<code_set_name> ANSI_X3.4-1968\n<comment_char> %\n<escape_char> /\nCHARMAP\n<U0000> /x00 NUL\n"
             "<U002C> /x2c COMMA\n<U0061> /x61 A\nEND CHARMAP\n");
        file(u"/locale/source"_s, "escape_char /\nLC_NUMERIC\ndecimal_point \"<U002C>\"\nthousands_sep \"\"\n"
                                  "grouping -1\nEND LC_NUMERIC\n");
        QDir().mkpath(path(u"root/locale/compiled"_s));
        // It warns of everything else that a locale has.
        (void)runProcess(u"localedef"_s,
                         {u"--no-archive"_s, u"-c"_s, u"-i"_s, path(u"root/locale/source"_s), u"-f"_s,
                          path(u"root/locale/characters"_s), path(u"root/locale/compiled/comma"_s)});
        qputenv("LOCPATH", path(u"root/locale/compiled"_s).toUtf8());
        EXPECT_TRUE(std::setlocale(LC_NUMERIC, "comma"));
        EXPECT_EQ(std::to_string(1.5), "1,500000");
    }
    ~CommaLocale() override {
        std::setlocale(LC_NUMERIC, "C");
        qunsetenv("LOCPATH");
    }
};

TEST_F(CommaLocale, DoesNotChangeTheReport) {
    const auto speed = [&] { return hardwareOf()[u"current_processor_speed"_s].toString(); };
    file(u"/proc/cpuinfo"_s, "model name : AMD EPYC\ncpu MHz : 2596.922\n");
    EXPECT_EQ(speed(), u"2.6 GHz"_s);
    file(u"/proc/cpuinfo"_s, "model name : Intel i5 @  2.40GHz\ncpu MHz : 800\n");
    EXPECT_EQ(speed(), u"2.4 GHz"_s);
}

TEST_F(SystemReport, DiscreteMemoryOfADriversOwnFile) {
    const QString device = u"/sys/bus/pci/devices/0000:03:00.0"_s;
    file(device + u"/class"_s, "0x030000\n");
    file(device + u"/vendor"_s, "0x8086\n");
    file(device + u"/device"_s, "0x56a0\n");
    file(device + u"/drm/card1/lmem_total_bytes"_s, "17179869184\n");
    EXPECT_EQ(first(displays(source()))[u"spdisplays_vram"_s], u"16 GB"_s);
    EXPECT_EQ(first(displays(source()))[u"sppci_model"_s], u"8086:56a0"_s) << "no list of names is installed";
}

TEST_F(SystemReport, BoardsWithoutPciNameTheirDriver) {
    file(u"/sys/class/drm/card0/device/uevent"_s, "DRIVER=vc4-drm\nOF_NAME=gpu\n");
    file(u"/sys/class/drm/card0-HDMI-A-1/device/uevent"_s, "DRIVER=no\n");
    file(u"/sys/class/drm/card1/device/uevent"_s, "DRIVER=i915\n");
    file(u"/sys/class/drm/card1/device/vendor"_s, "0x8086\n"); // stands under PCI
    const Section section = displays(source());
    EXPECT_EQ(section.items.size(), 1U);
    EXPECT_EQ(first(section)[u"sppci_model"_s], u"vc4-drm"_s);
}

TEST_F(SystemReport, EmptyMachineHasNothingToTell) {
    EXPECT_EQ(hardwareOf(), (QVariantMap{{u"_name"_s, u"hardware_overview"_s}}));
    EXPECT_TRUE(displays(source()).items.empty());
}

QString tool() { return tx::test::resourcesFolder() + u"/system_profiler"_s; }

TEST(SystemProfilerTool, WritesThePropertyListOfThisMachine) {
    const auto result = runProcess(
        tool(), {u"-detailLevel"_s, u"mini"_s, u"-xml"_s, u"SPHardwareDataType"_s, u"SPDisplaysDataType"_s});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    const auto list = tx::readPropertyList(result.output);
    ASSERT_TRUE(bool(list));
    ASSERT_EQ(list->toList().size(), 2);
    EXPECT_EQ(list->toList()[0].toMap()[u"_dataType"_s], u"SPHardwareDataType"_s);
    EXPECT_EQ(list->toList()[1].toMap()[u"_dataType"_s], u"SPDisplaysDataType"_s);
    TXUpdateSystemProfile profile(TXUpdateSystemProfile::Contents::Empty);
    tx::readHardwareAndDisplays(profile, tx::builtFor, *list);
    EXPECT_GT(profile.RAM(), 0U);
    EXPECT_GT(profile.CPUCount(), 0U);
}

TEST(SystemProfilerTool, HasTheValuesThatAProfileReadsInTheProcess) {
    const auto ofTool = [] { return tx::readPropertyList(runProcess(tool(), {u"-xml"_s}).output); };
    // The speed of a processor may change in between.
    EXPECT_TRUE(tx::test::waitUntil([&] {
        const auto written = ofTool();
        return written && tx::writePropertyList(*written) ==
                              tx::writePropertyList(tx::sectionsFrom(tx::services().systemReport()));
    })) << ofTool()->toList().size();
}

TEST(SystemProfilerTool, IsReadableByAPerson) {
    const auto result = runProcess(tool(), {u"SPHardwareDataType"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output.toStdString(), testing::StartsWith("Hardware:\n    Hardware Overview:\n"));
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("      Memory: "));
    EXPECT_THAT(result.output.toStdString(), testing::Not(testing::HasSubstr("Graphics")));
    EXPECT_THAT(runProcess(tool(), {}).output.toStdString(), testing::HasSubstr("Graphics/Displays:\n"));
    EXPECT_EQ(runProcess(tool(), {u"-listDataTypes"_s}).output,
              QByteArray("SPHardwareDataType\nSPDisplaysDataType\n"));
}

TEST(SystemProfilerTool, MisuseIsExplained) {
    const std::pair<QStringList, const char *> cases[] = {
        {{u"-detailLevel"_s}, "-detailLevel needs"},
        {{u"-detailLevel"_s, u"huge"_s}, "-detailLevel needs"},
        {{u"-json"_s}, "-json: unknown option"},
        {{u"SPNetworkDataType"_s}, "SPNetworkDataType: unknown data type"},
    };
    for (const auto &[arguments, words] : cases) {
        const auto result = runProcess(tool(), arguments);
        EXPECT_EQ(result.status, 64);
        EXPECT_TRUE(result.output.isEmpty());
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(words));
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("usage: system_profiler"));
    }
}

TEST(SystemProfilerTool, FullDiskIsAFailure) {
    const auto result = runProcess(u"/bin/sh"_s, {u"-c"_s, u"\"$0\" -xml > /dev/full"_s, tool()});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("system_profiler: "));
}

} // namespace
