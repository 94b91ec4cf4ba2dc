// SPDX-License-Identifier: MIT
#include "base/propertylist.h"
#include "os/services.h"
#include "os/userdefaults.h"
#include "profile/cpufamily.h"
#include "profile/measure.h"
#include "profile/valuescan.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <QElapsedTimer>
#include <QFile>

#include <csignal>

#include <atomic>
#include <condition_variable>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;
using Profile = TXUpdateSystemProfile;
using tx::Processor;
using tx::machine::Item;
using tx::machine::Section;

namespace {

Profile emptyProfile() { return Profile(Profile::Contents::Empty); }

/// What the program system_profiler writes for items of each type.
QByteArray toolOutput(const QVariantMap &hardware, const QVariantList &displays = {}) {
    return tx::writePropertyList(QVariantList{
        QVariantMap{{u"_dataType"_s, u"SPHardwareDataType"_s}, {u"_items"_s, QVariantList{hardware}}},
        QVariantMap{{u"_dataType"_s, u"SPDisplaysDataType"_s}, {u"_items"_s, displays}}});
}

Profile profileOf(const QByteArray &output, Processor processor = Processor::X86) {
    Profile profile = emptyProfile();
    const auto list = tx::readPropertyList(output);
    tx::readHardwareAndDisplays(profile, processor, list ? *list : QVariant());
    return profile;
}

QVariantMap graphics(const QString &model, const QString &memory) {
    return {{u"sppci_device_type"_s, u"spdisplays_gpu"_s},
            {u"sppci_model"_s, model},
            {u"spdisplays_vram"_s, memory}};
}

const QStringList keysInOrder{u"OSVersion"_s,   u"OSBuild"_s, u"machineName"_s, u"machineModel"_s,
                              u"is64bit"_s,     u"CPUType"_s, u"CPUCount"_s,    u"CPUSpeed"_s,
                              u"RAM"_s,         u"GPUType"_s, u"VRAM"_s,        u"numberOfDisplays"_s,
                              u"resolutions"_s, u"language"_s};

TEST(SystemProfile, HasFourteenKeysInOrder) { EXPECT_EQ(Profile::JSONKeys(), keysInOrder); }

TEST(SystemProfile, EveryValueIsSentAsAText) {
    Profile profile = emptyProfile();
    profile.setOSVersion(u"12.0.0"_s);
    profile.setOSBuild(u"6.1.0"_s);
    profile.setMachineName(u"ThinkPad"_s);
    profile.setMachineModel(u"20XW"_s);
    profile.setIs64bit(true);
    profile.setCPUType(u"Intel(R) Core(TM) i7"_s);
    profile.setCPUCount(4);
    profile.setCPUSpeed(2);
    profile.setRAM(16384);
    profile.setGPUType(u"Intel Iris Xe"_s);
    profile.setVRAM(18446744073709551615ULL);
    profile.setNumberOfDisplays(2);
    profile.setResolutions(u"{1440, 900} (2.0)"_s);
    profile.setLanguage(u"de-AT"_s);
    EXPECT_EQ(profile.JSONDictionary(), (QVariantMap{{u"OSVersion"_s, u"12.0.0"_s},
                                                     {u"OSBuild"_s, u"6.1.0"_s},
                                                     {u"machineName"_s, u"ThinkPad"_s},
                                                     {u"machineModel"_s, u"20XW"_s},
                                                     {u"is64bit"_s, u"1"_s},
                                                     {u"CPUType"_s, u"Intel(R) Core(TM) i7"_s},
                                                     {u"CPUCount"_s, u"4"_s},
                                                     {u"CPUSpeed"_s, u"2"_s},
                                                     {u"RAM"_s, u"16384"_s},
                                                     {u"GPUType"_s, u"Intel Iris Xe"_s},
                                                     {u"VRAM"_s, u"18446744073709551615"_s},
                                                     {u"numberOfDisplays"_s, u"2"_s},
                                                     {u"resolutions"_s, u"{1440, 900} (2.0)"_s},
                                                     {u"language"_s, u"de-AT"_s}}));
    EXPECT_EQ(
        profile.stringValue(),
        u"OSVersion = 12.0.0\nOSBuild = 6.1.0\nmachineName = ThinkPad\nmachineModel = 20XW\nis64bit = 1\n"
        "CPUType = Intel(R) Core(TM) i7\nCPUCount = 4\nCPUSpeed = 2\nRAM = 16384\nGPUType = Intel Iris Xe\n"
        "VRAM = 18446744073709551615\nnumberOfDisplays = 2\nresolutions = {1440, 900} (2.0)\n"
        "language = de-AT\n"_s);
}

TEST(SystemProfile, MissingValuesAreLeftOutAndNumbersAreNot) {
    const Profile profile = emptyProfile();
    EXPECT_EQ(profile.JSONDictionary(), (QVariantMap{{u"is64bit"_s, u"0"_s},
                                                     {u"CPUCount"_s, u"0"_s},
                                                     {u"CPUSpeed"_s, u"0"_s},
                                                     {u"RAM"_s, u"0"_s},
                                                     {u"VRAM"_s, u"0"_s},
                                                     {u"numberOfDisplays"_s, u"0"_s}}));
    EXPECT_EQ(
        profile.stringValue(),
        u"OSVersion = (null)\nOSBuild = (null)\nmachineName = (null)\nmachineModel = (null)\nis64bit = 0\n"
        "CPUType = (null)\nCPUCount = 0\nCPUSpeed = 0\nRAM = 0\nGPUType = (null)\nVRAM = 0\n"
        "numberOfDisplays = 0\nresolutions = (null)\nlanguage = (null)\n"_s);
}

TEST(SystemProfile, FamiliesFollowTheTable) {
    const std::pair<QString, QString> cases[] = {
        {u"Intel(R) Core Duo T2400"_s, u"Core Duo"_s},
        {u"Intel(R) Core 2 Duo P8600"_s, u"Core 2 Duo"_s},
        {u"Intel Core Duo, Core 2 Duo"_s, u"Core Duo"_s},
        {u"Intel(R) Core(TM) i3-8100"_s, u"i3"_s},
        {u"Intel(R) Core(TM) i5-8259U"_s, u"i5"_s},
        {u"Intel(R) Core(TM) i7-9750H CPU"_s, u"i7"_s},
        {u"Intel(R) Core(TM) i9-9880H"_s, u"i9"_s},
        {u"Intel(R) Xeon(R) W-3245"_s, u"Xeon"_s},
        {u"Intel Pentium"_s, u"Unknown"_s},
        {u"intel core i7"_s, u"Unknown"_s},
        {u"Apple M1 Pro"_s, u"M1 Pro"_s},
        {u"Apple M2 Max"_s, u"M2 Max"_s},
        {u"Apple "_s, u""_s},
        {u"Apple"_s, u"Unknown"_s},
        {u"An Apple M1"_s, u"Unknown"_s},
        {u"Apple with Intel i5"_s, u"i5"_s},
        {u"AMD Ryzen 7"_s, u"Unknown"_s},
        {u"i7"_s, u"Unknown"_s},
        {QString(), u"Unknown"_s},
    };
    for (const auto &[name, family] : cases) {
        EXPECT_EQ(tx::cpuFamily(name), family) << name.toStdString();
        Profile profile = emptyProfile();
        profile.setCPUType(name);
        EXPECT_EQ(profile.CPUFamily(), family);
    }
}

TEST(SystemProfile, UnitScan) {
    const std::pair<QString, std::optional<quint64>> cases[] = {
        {u"16 GB"_s, 16384},
        {u"512 MB"_s, 512},
        {u"3 GHz"_s, 3072},
        {u"2.4 GHz"_s, 2},
        {u"16GB"_s, 16384},
        {u"  8 gb"_s, 8192},
        {u"\n 8\n GB"_s, 8192},
        {u"16"_s, {}},
        {u"16 "_s, {}},
        {u"16 \n"_s, {}},
        {u"GB"_s, {}},
        {u""_s, {}},
        {{}, {}},
        {u"0 GB"_s, 0},
        {u"+4 GB"_s, 4096},
        {u"1 TB"_s, 1},
        {u"7 x\nGB"_s, 7},
        {u"99999999999999999999 MB"_s, 9223372036854775807ULL},
    };
    for (const auto &[text, value] : cases)
        EXPECT_EQ(tx::scanWithUnit(text), value) << text.toStdString();
}

TEST(SystemProfile, IntegerValues) {
    const std::pair<QVariant, qint64> cases[] = {
        {u"10"_s, 10},
        {u" 12abc"_s, 12},
        {u"-3"_s, -3},
        {u"abc"_s, 0},
        {u""_s, 0},
        {8, 8},
        {quint64(6), 6},
        {2.9, 2},
        {true, 1},
        {QVariant(), 0},
        {QVariantList{1}, 0},
        {u"-9223372036854775809"_s, std::numeric_limits<qint64>::min()},
        {u"9223372036854775808"_s, std::numeric_limits<qint64>::max()},
        {std::numeric_limits<double>::infinity(), 9200000000000000000},
        {std::numeric_limits<double>::quiet_NaN(), 0},
    };
    for (const auto &[value, number] : cases)
        EXPECT_EQ(tx::integerValue(value), number) << value.toString().toStdString();
}

TEST(SystemProfile, HardwareInBothBuilds) {
    const QVariantMap intel{{u"machine_name"_s, u"MacBook Pro"_s},
                            {u"machine_model"_s, u"MacBookPro16,1"_s},
                            {u"cpu_type"_s, u"6-Core Intel Core i7"_s},
                            {u"chip_type"_s, u"not this"_s},
                            {u"number_processors"_s, 6},
                            {u"current_processor_speed"_s, u"2.6 GHz"_s},
                            {u"physical_memory"_s, u"16 GB"_s}};
    const Profile x86 = profileOf(toolOutput(intel));
    EXPECT_EQ(x86.machineName(), u"MacBook Pro"_s);
    EXPECT_EQ(x86.machineModel(), u"MacBookPro16,1"_s);
    EXPECT_EQ(x86.CPUType(), u"6-Core Intel Core i7"_s);
    EXPECT_EQ(x86.CPUCount(), 6U);
    EXPECT_EQ(x86.CPUSpeed(), 2U);
    EXPECT_EQ(x86.RAM(), 16384U);
    EXPECT_EQ(x86.CPUFamily(), u"i7"_s);

    const QVariantMap apple{
        {u"machine_name"_s, u"MacBook Pro"_s},      {u"machine_model"_s, u"MacBookPro18,1"_s},
        {u"chip_type"_s, u"Apple M1 Pro"_s},        {u"cpu_type"_s, u"not this"_s},
        {u"number_processors"_s, u"proc 10:8:2"_s}, {u"physical_memory"_s, u"16 GB"_s}};
    const Profile arm = profileOf(toolOutput(apple), Processor::Arm64);
    EXPECT_EQ(arm.CPUType(), u"Apple M1 Pro"_s);
    EXPECT_EQ(arm.CPUCount(), 10U);
    EXPECT_EQ(arm.CPUSpeed(), 0U) << "only when present";
    EXPECT_EQ(arm.CPUFamily(), u"M1 Pro"_s);
}

TEST(SystemProfile, ProcessorCounts) {
    const std::tuple<Processor, QVariant, quint64> cases[] = {
        {Processor::X86, 8, 8},
        {Processor::X86, u"8"_s, 8},
        {Processor::X86, u"proc 10:8:2"_s, 0},
        {Processor::Arm64, u"proc 10:8:2"_s, 10},
        {Processor::Arm64, u"proc 8"_s, 8},
        {Processor::Arm64, u"proc "_s, 0},
        {Processor::Arm64, u"10:8:2"_s, 0},
        {Processor::Arm64, u"Proc 10"_s, 0},
        {Processor::Arm64, 10, 0},
    };
    for (const auto &[processor, value, count] : cases) {
        const Profile profile = profileOf(toolOutput({{u"number_processors"_s, value}}), processor);
        EXPECT_EQ(profile.CPUCount(), count) << value.toString().toStdString();
        EXPECT_EQ(profile.JSONDictionary()[u"CPUCount"_s], QString::number(count));
    }
}

TEST(SystemProfile, BuildKnowsItsProcessor) {
#if defined(__aarch64__)
    EXPECT_TRUE(Profile::isAppleSilicon());
#else
    EXPECT_FALSE(Profile::isAppleSilicon());
#endif
}

TEST(SystemProfile, LaterItemWithoutAKeyLeavesNothing) {
    const QVariantMap first{{u"machine_name"_s, u"A"_s},      {u"machine_model"_s, u"A1"_s},
                            {u"cpu_type"_s, u"Intel"_s},      {u"chip_type"_s, u"Apple"_s},
                            {u"number_processors"_s, 4},      {u"current_processor_speed"_s, u"3 GHz"_s},
                            {u"physical_memory"_s, u"8 GB"_s}};
    const auto with = [&first](const QVariantMap &later, Processor processor) {
        return profileOf(
            tx::writePropertyList(QVariantList{QVariantMap{{u"_dataType"_s, u"SPHardwareDataType"_s},
                                                           {u"_items"_s, QVariantList{first, later}}}}),
            processor);
    };
    const Profile x86 =
        with({{u"machine_name"_s, u"B"_s}, {u"physical_memory"_s, u"much"_s}}, Processor::X86);
    EXPECT_EQ(x86.machineName(), u"B"_s);
    EXPECT_TRUE(x86.machineModel().isNull());
    EXPECT_TRUE(x86.CPUType().isNull());
    EXPECT_EQ(x86.CPUCount(), 0U);
    EXPECT_EQ(x86.CPUSpeed(), 3072U) << "stays when there is no number";
    EXPECT_EQ(x86.RAM(), 8192U);
    QVariantMap arm = first;
    arm[u"number_processors"_s] = u"proc 10:8:2"_s;
    EXPECT_TRUE(with({}, Processor::X86).machineName().isNull());
    const Profile later = profileOf(
        tx::writePropertyList(QVariantList{QVariantMap{{u"_dataType"_s, u"SPHardwareDataType"_s},
                                                       {u"_items"_s, QVariantList{arm, QVariantMap()}}}}),
        Processor::Arm64);
    EXPECT_TRUE(later.CPUType().isNull());
    EXPECT_EQ(later.CPUCount(), 10U) << "set by a text of its form only";
    const QVariantMap unnamed{{u"sppci_device_type"_s, u"spdisplays_gpu"_s},
                              {u"spdisplays_vram"_s, u"1 GB"_s}};
    const Profile displays = profileOf(toolOutput({}, {graphics(u"First"_s, u"1 GB"_s), unnamed}));
    EXPECT_TRUE(displays.GPUType().isNull());
    EXPECT_EQ(displays.VRAM(), 2048U);
}

TEST(SystemProfile, EachKeyHasItsValue) {
    Profile profile = emptyProfile();
    profile.setMachineName(u"ThinkPad"_s);
    profile.setCPUCount(4);
    profile.setIs64bit(true);
    EXPECT_EQ(profile.valueForKey(u"machineName"_s), u"ThinkPad"_s);
    EXPECT_EQ(profile.valueForKey(u"CPUCount"_s), u"4"_s);
    EXPECT_EQ(profile.valueForKey(u"is64bit"_s), u"1"_s);
    EXPECT_TRUE(profile.valueForKey(u"language"_s).isNull());
    for (const QString &unknown : {u"CPUFamily"_s, u"cpucount"_s, u""_s, QString()})
        EXPECT_TRUE(profile.valueForKey(unknown).isNull()) << unknown.toStdString();
    for (const QString &key : Profile::JSONKeys())
        EXPECT_EQ(profile.valueForKey(key), profile.JSONDictionary().value(key).toString())
            << key.toStdString();
}

TEST(SystemProfile, GraphicsMemoryAddsUpAndTheLastModelWins) {
    const QVariantMap screen{{u"sppci_device_type"_s, u"spdisplays_display"_s},
                             {u"sppci_model"_s, u"no"_s},
                             {u"spdisplays_vram"_s, u"8 GB"_s}};
    const Profile two = profileOf(
        toolOutput({}, {graphics(u"First"_s, u"1536 MB"_s), graphics(u"Second"_s, u"2 GB"_s), screen}));
    EXPECT_EQ(two.VRAM(), 3584U);
    EXPECT_EQ(two.GPUType(), u"Second"_s);
    const std::pair<QString, quint64> cases[] = {{u"1536 MB"_s, 1536},
                                                 {u"8 GB"_s, 8192},
                                                 {u"8 gb"_s, 8},
                                                 {u"8"_s, 0},
                                                 {u"Dynamic, Max: 1536 MB"_s, 0},
                                                 {u"8  GB"_s, 0},
                                                 {u""_s, 0},
                                                 {u"some GB"_s, 0},
                                                 {u"8 MB "_s, 0}};
    for (const auto &[text, memory] : cases)
        EXPECT_EQ(profileOf(toolOutput({}, {graphics(u"G"_s, text)})).VRAM(), memory) << text.toStdString();
}

TEST(SystemProfile, NonsenseLeavesTheFieldsEmpty) {
    const QByteArray outputs[] = {
        "",
        "no property list",
        tx::writePropertyList(u"text"_s),
        tx::writePropertyList(QVariantMap{{u"_dataType"_s, u"SPHardwareDataType"_s}}),
        tx::writePropertyList(QVariantList{1, u"x"_s, QVariantList{}}),
        tx::writePropertyList(
            QVariantList{QVariantMap{{u"_dataType"_s, u"SPHardwareDataType"_s}, {u"_items"_s, 7}}}),
        tx::writePropertyList(QVariantList{
            QVariantMap{{u"_dataType"_s, u"SPHardwareDataType"_s}, {u"_items"_s, QVariantList{u"x"_s, 3}}}}),
        tx::writePropertyList(QVariantList{
            QVariantMap{{u"_dataType"_s, u"SPOtherDataType"_s},
                        {u"_items"_s, QVariantList{QVariantMap{{u"machine_name"_s, u"no"_s}}}}}}),
        toolOutput({{u"machine_name"_s, 3}, {u"cpu_type"_s, QVariantList{}}, {u"physical_memory"_s, 16}}),
    };
    for (const QByteArray &output : outputs) {
        for (const Processor processor : {Processor::X86, Processor::Arm64})
            EXPECT_EQ(profileOf(output, processor).stringValue(), emptyProfile().stringValue())
                << output.constData();
    }
}

TEST(SystemProfile, VersionTextIsTakenApart) {
    const std::tuple<QString, QString, QString> cases[] = {
        {u"Version 10.15.7 (Build 19H2)"_s, u"10.15.7"_s, u"19H2"_s},
        {u"Version 14.1 (Build 23B74)"_s, u"14.1"_s, u"23B74"_s},
        {u"Version 12.0.0 (Build 6.1.0-18-amd64)"_s, u"12.0.0"_s, u"6.1.0-18-amd64"_s},
        {u"Version 12"_s, u"12"_s, {}},
    };
    for (const auto &[text, version, build] : cases) {
        Profile profile = emptyProfile();
        tx::readSystemVersion(profile, text);
        EXPECT_EQ(profile.OSVersion(), version);
        EXPECT_EQ(profile.OSBuild(), build);
        EXPECT_EQ(profile.JSONDictionary().contains(u"OSBuild"_s), !build.isNull());
    }
}

TEST(SystemProfile, LanguageIsTheFirstPreferredOne) {
    const std::pair<QVariant, QString> cases[] = {
        {QStringList({u"de-AT"_s, u"en"_s}), u"de-AT"_s},
        {QVariantList{u"fr"_s}, u"fr"_s},
        {QVariantList(), {}},
        {QVariant(), {}},
        {u"de"_s, {}}, // no list
    };
    for (const auto &[languages, language] : cases) {
        Profile profile = emptyProfile();
        tx::readLanguage(profile, languages);
        EXPECT_EQ(profile.language(), language);
    }
}

class MeasuredProfile : public tx::test::FrameworkTest {
protected:
    MeasuredProfile() {
        tx::services().systemReport = [] { return std::vector<Section>(); };
    }
    static Item item(std::initializer_list<std::pair<std::string, Item::Value>> members) {
        return {{members}};
    }
};

TEST_F(MeasuredProfile, WordSizeAsksTheSecondNameOnlyWhenTheFirstIsUnknown) {
    using Answer = std::optional<int>;
    const std::tuple<Answer, Answer, bool> cases[] = {
        {1, 0, true}, {0, 1, false}, {Answer(), 1, true}, {Answer(), 0, false}, {Answer(), Answer(), false},
        {2, 1, false}};
    for (const auto &[first, second, expected] : cases) {
        tx::services().systemControlNumber = [first = first, second = second](const QString &name) {
            return name == u"hw.cpu64bit_capable" ? first : name == u"hw.optional.x86_64" ? second : Answer();
        };
        Profile profile = emptyProfile();
        tx::readWordSize(profile);
        EXPECT_EQ(profile.is64bit(), expected);
    }
}

TEST_F(MeasuredProfile, ScreensAreListedInPointsWithTheirScales) {
    const std::pair<QList<tx::ScreenInfo>, QString> cases[] = {
        {{}, u""_s},
        {{{{1440, 900}, 2.0}}, u"{1440, 900} (2.0)"_s},
        {{{{1440, 900}, 2.0}, {{1920.9, 1080.9}, 1.25}}, u"{1440, 900} (2.0), {1920, 1080} (1.2)"_s},
    };
    for (const auto &[screens, text] : cases) {
        tx::services().screens = [screens = screens] { return screens; };
        Profile profile = emptyProfile();
        tx::readScreens(profile);
        EXPECT_EQ(profile.resolutions(), text);
        EXPECT_EQ(profile.numberOfDisplays(), static_cast<quint64>(screens.size()));
        EXPECT_EQ(profile.JSONDictionary()[u"resolutions"_s], text) << "an empty text is sent";
    }
}

TEST_F(MeasuredProfile, ThisMachineAnswersItsOwnQuestions) {
    EXPECT_TRUE(tx::services().operatingSystemVersionString().startsWith(u"Version "_s));
    const auto capable = tx::services().systemControlNumber(u"hw.cpu64bit_capable"_s);
    ASSERT_TRUE(capable);
    EXPECT_EQ(*capable, QT_POINTER_SIZE == 8 ? 1 : *capable);
    EXPECT_EQ(tx::services().systemControlNumber(u"hw.optional.x86_64"_s),
              QSysInfo::currentCpuArchitecture() == u"x86_64" ? 1 : 0);
    EXPECT_FALSE(tx::services().systemControlNumber(u"hw.none"_s));
    EXPECT_FALSE(tx::services().systemControlText(u"hw.none"_s));
}

TEST_F(MeasuredProfile, BrandIsTheProcessorsOwnName) {
    EXPECT_EQ(tx::brandFromCpuInfo("processor\t: 0\nmodel name\t: AMD Ryzen 7: x\nmodel name\t: other\n"),
              u"AMD Ryzen 7: x"_s);
    EXPECT_EQ(tx::brandFromCpuInfo("processor : 0\nHardware : BCM2835\n"), u"BCM2835"_s);
    EXPECT_FALSE(tx::brandFromCpuInfo("processor : 0\n"));
    tx::services().systemControlText = [](const QString &name) {
        return name == u"machdep.cpu.brand_string" ? std::optional(u"Apple M3"_s) : std::nullopt;
    };
    EXPECT_EQ(Profile::CPUBrandString(), u"Apple M3"_s);
    EXPECT_EQ(Profile::CPUFamilyOfBrandString(), u"M3"_s);
    tx::services().systemControlText = [](const QString &) { return std::optional<QString>(); };
    EXPECT_TRUE(Profile::CPUBrandString().isNull());
    EXPECT_EQ(Profile::CPUFamilyOfBrandString(), u"Unknown"_s);
}

TEST_F(MeasuredProfile, EverythingIsMeasuredAfreshInOneGo) {
    const auto reports = std::make_shared<std::atomic<int>>(0);
    tx::services().systemReport = [reports] {
        ++*reports;
        return std::vector<Section>{
            {"SPHardwareDataType", {item({{"machine_name", "Test"}, {"physical_memory", "2 GB"}})}},
            {"SPDisplaysDataType",
             {item({{"sppci_device_type", "spdisplays_gpu"},
                    {"sppci_model", "GPU"},
                    {"spdisplays_vram", "1 GB"}})}}};
    };
    tx::services().operatingSystemVersionString = [] { return u"Version 9.1 (Build X)"_s; };
    tx::services().screens = [] { return QList<tx::ScreenInfo>{{{800, 600}, 1.0}}; };
    EXPECT_TRUE(
        tx::UserDefaults::standard().setValue(u"AppleLanguages"_s, QVariantList{u"pt-BR"_s}).isNull());
    const TXUpdateSystemProfilePtr profile = Profile::systemProfile();
    EXPECT_EQ(profile->OSVersion(), u"9.1"_s);
    EXPECT_EQ(profile->OSBuild(), u"X"_s);
    EXPECT_EQ(profile->machineName(), u"Test"_s);
    EXPECT_EQ(profile->RAM(), 2048U);
    EXPECT_EQ(profile->GPUType(), u"GPU"_s);
    EXPECT_EQ(profile->VRAM(), 1024U);
    EXPECT_EQ(profile->resolutions(), u"{800, 600} (1.0)"_s);
    EXPECT_EQ(profile->language(), u"pt-BR"_s);
    EXPECT_NE(Profile::systemProfile(), profile);
    EXPECT_EQ(*reports, 2) << "nothing is kept between profiles";
}

TEST_F(MeasuredProfile, LanguageFallsBackToTheUsersOwnList) {
    qputenv("LC_ALL", "fr_FR.UTF-8");
    const Profile profile;
    EXPECT_TRUE(profile.language().startsWith(u"fr"_s)) << profile.language().toStdString();
}

TEST_F(MeasuredProfile, NoLanguageWasChosenInTheCLocale) {
    qputenv("LC_ALL", "C");
    EXPECT_TRUE(Profile().language().isNull());
}

TEST_F(MeasuredProfile, SystemWithoutAReportLeavesItsFieldsEmpty) {
    tx::services().systemReport = [] { return std::vector<Section>{{"SPHardwareDataType", {}}}; };
    const Profile profile;
    EXPECT_TRUE(profile.machineName().isNull());
    EXPECT_EQ(profile.RAM(), 0U);
    EXPECT_FALSE(profile.OSVersion().isNull()) << "what was measured before stays";
}

/// A system whose files hang until the end of the test.
class HangingProfile : public MeasuredProfile {
protected:
    /// Outlives the test in the thread that hangs.
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool isReleased = false;
        int reports = 0;
    };
    const std::shared_ptr<State> state = std::make_shared<State>();

    HangingProfile() {
        tx::services().systemReportTime = std::chrono::milliseconds(50);
        tx::services().systemReport = [state = state] {
            std::unique_lock lock(state->mutex);
            ++state->reports;
            state->changed.wait(lock, [&] { return state->isReleased; });
            return std::vector<Section>{{"SPHardwareDataType", {item({{"machine_name", "Test"}})}}};
        };
    }
    ~HangingProfile() override {
        {
            const std::lock_guard lock(state->mutex);
            state->isReleased = true;
            state->changed.notify_all();
        }
        tx::services().systemReportTime = std::chrono::seconds(20);
        EXPECT_TRUE(tx::test::waitUntil([] { return Profile().machineName() == u"Test"_s; }, 20000))
            << "once the files can be read, they are read again";
    }
    int reports() const {
        const std::lock_guard lock(state->mutex);
        return state->reports;
    }
};

TEST_F(HangingProfile, IsThereInTimeWithoutWhatHangs) {
    const Profile profile;
    EXPECT_TRUE(profile.machineName().isNull());
    EXPECT_FALSE(profile.OSVersion().isNull()) << "what was measured before stays";
}

TEST_F(HangingProfile, DoesNotPileUpThreads) {
    EXPECT_TRUE(Profile().machineName().isNull());
    EXPECT_TRUE(tx::test::waitUntil([this] { return reports() == 1; }));
    tx::services().systemReportTime = std::chrono::seconds(20);
    EXPECT_TRUE(Profile().machineName().isNull());
    EXPECT_EQ(reports(), 1) << "the first thread still hangs";
}

} // namespace
