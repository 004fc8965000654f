// DiagGuard: how the switches are settled from the registry, the gate's
// order (class bit first, then the switches), monitoring in both
// directions, whole messages from threads that share a guard, the
// assertion report, and the cases that must not fault: no guard on a
// thread, a default-built guard, a null name, the key taken away while
// guards read it.
#include "DiagFixture.h"

#include <atomic>
#include <regex>
#include <string>
#include <type_traits>
#include <vector>

#include "FileDir.h"
#include "GenTxt.h"

namespace {

using tstest::DiagTest;
using tstest::GuardFields;

const DiagGuard::ClassNameIndex kText = GenericText::CLASS_INDEX;
const DiagGuard::ClassNameIndex kProgramClass = static_cast<DiagGuard::ClassNameIndex>(20);
const DiagGuard::ClassNameIndex kUnsetClass = static_cast<DiagGuard::ClassNameIndex>(50);

static_assert(std::is_same<decltype(GenericText::CLASS_INDEX), const DiagGuard::ClassNameIndex>::value,
              "GenericText's index has the enum type");
static_assert(std::is_same<decltype(GenericFile::CLASS_INDEX), const DiagGuard::ClassNameIndex>::value,
              "GenericFile's index has the enum type");

TEST(DiagGuardFrame, ClassIndexesAndInitialStatics)
{
    EXPECT_EQ(DiagGuard::CLASS_INDEX, 1);
    EXPECT_EQ(GenericFile::CLASS_INDEX, 3);
    EXPECT_EQ(GenericText::CLASS_INDEX, 4);
    EXPECT_EQ(DiagGuard::initDiagRegKeyPtr, nullptr);
}

// No registry work at all: diagnostics off for the guard's life, errors and
// messages on; no gated text and no file.
TEST_F(DiagTest, WithoutTheRegistryEveryGateShuts)
{
    DiagGuard g(File("silent.txt").c_str());
    EXPECT_EQ(g.GetDiagEnable(), FALSE);
    EXPECT_EQ(g.GetDiagErr(), TRUE);
    EXPECT_EQ(g.GetDiagMsg(), TRUE);
    EXPECT_EQ(g.GetDiagAst(), FALSE);
    EXPECT_EQ(g.GetDiagAstv(), FALSE);
    EXPECT_EQ(GuardFields::Mask(g, 0), 0u);
    for (int c = 1; c <= 42; ++c)
        EXPECT_EQ(GuardFields::Mask(g, c), 0x73u) << c;
    EXPECT_EQ(GuardFields::Mask(g, 43), 0u);

    DiagGuard::SetThreadDiagGuardPtr(&g);
    EXPECT_EQ(DiagGuard::GetThreadDiagGuardPtr(), &g);
    DIAG_MSG(kText, "message\n");
    DIAG_ERR(kText, "error\n");
    bool wentOn = false;
    DIAG_ASSERT(kText, 1 == 2);
    wentOn = true;
    EXPECT_TRUE(wentOn);
    EXPECT_EQ(Content("silent.txt"), "<missing>");
}

// The key is there and holds none of the values: every static keeps its
// initial value.
TEST_F(DiagTest, MissingValuesKeepTheInitialSwitches)
{
    CreateKey("Diagnostics");
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    EXPECT_NE(DiagGuard::initDiagRegKeyPtr, nullptr);
    EXPECT_EQ(DiagGuard::initDiagEnable, FALSE);
    EXPECT_EQ(DiagGuard::initDiagAst, FALSE);
    EXPECT_EQ(DiagGuard::initDiagAstv, FALSE);
    EXPECT_EQ(DiagGuard::initDiagErr, TRUE);
    EXPECT_EQ(DiagGuard::initDiagMsg, TRUE);
    EXPECT_EQ(DiagGuard::initMonitorDiagFlags, TRUE);
}

// Values present: not 0 is TRUE (5 reads as 1), 0 is FALSE; one value feeds
// both assertion switches. With monitoring off a guard keeps its copies.
TEST_F(DiagTest, PresentValuesSettleTheSwitches)
{
    CreateKey("Diagnostics");
    SetDword("Diagnostics", "AllowDiagnostics", 5);
    SetDword("Diagnostics", "EnableDebugBuildAssertions", 1);
    SetDword("Diagnostics", "EnableErrorMessages", 0);
    SetDword("Diagnostics", "EnableOtherMessages", 7);
    SetDword("Diagnostics", "MonitorTheseSettingsDuringRun", 0);
    ASSERT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    EXPECT_EQ(static_cast<int>(DiagGuard::initDiagEnable), 1);
    EXPECT_EQ(DiagGuard::initDiagAst, TRUE);
    EXPECT_EQ(DiagGuard::initDiagAstv, TRUE);
    EXPECT_EQ(DiagGuard::initDiagErr, FALSE);
    EXPECT_EQ(static_cast<int>(DiagGuard::initDiagMsg), 1);
    EXPECT_EQ(DiagGuard::initMonitorDiagFlags, FALSE);

    DiagGuard g(File("present.txt").c_str());
    DiagGuard::SetThreadDiagGuardPtr(&g);
    DIAG_MSG(kText, "message " << 1 << "\n");
    DIAG_ERR(kText, "error\n"); // errors are off
    SetDword("Diagnostics", "AllowDiagnostics", 0);
    DIAG_MSG(kText, "unmonitored\n"); // the copy stands
    EXPECT_EQ(Content("present.txt"), "message 1\r\nunmonitored\r\n");
}

TEST_F(DiagTest, AGuardBuiltBeforeTheRegistryWasReadStaysSilent)
{
    CreateKey("Diagnostics");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    DiagGuard early(File("early.txt").c_str());
    ASSERT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    DiagGuard late(File("late.txt").c_str());
    EXPECT_EQ(early.GetDiagEnable(), FALSE);
    EXPECT_EQ(GuardFields::Key(early), nullptr);
    EXPECT_EQ(late.GetDiagEnable(), TRUE);
}

// Monitoring on: each gate reads the registry, in both directions and with
// no restart; a deleted value leaves the last value read; the statics stay.
TEST_F(DiagTest, MonitoredSwitchesFollowTheRegistry)
{
    CreateKey("Diagnostics");
    SetDword("Diagnostics", "EnableErrorMessages", 1);
    AssignWithDiagnostics(0);
    DiagGuard g(File("monitored.txt").c_str());
    DiagGuard::SetThreadDiagGuardPtr(&g);

    DIAG_MSG(kText, "zero\n");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    DIAG_MSG(kText, "one\n");
    SetDword("Diagnostics", "AllowDiagnostics", 0);
    DIAG_MSG(kText, "two\n");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    DIAG_ERR(kText, "three\n");
    DeleteValue("Diagnostics", "EnableErrorMessages");
    DIAG_ERR(kText, "four\n"); // the last value read stands
    EXPECT_EQ(g.GetDiagErr(), TRUE);
    SetDword("Diagnostics", "EnableOtherMessages", 0);
    DIAG_MSG(kText, "five\n");
    DIAG_ERR(kText, "six\n");
    EXPECT_EQ(Content("monitored.txt"), "one\r\nthree\r\nfour\r\nsix\r\n");
    EXPECT_EQ(DiagGuard::initDiagEnable, FALSE) << "a monitored read writes only the guard's field";
    EXPECT_EQ(DiagGuard::initDiagMsg, TRUE);
}

// Step 1 needs no registry: a gate whose class bit is clear leaves the
// guard's switches unread. Each class has its own mask.
TEST_F(DiagTest, TheClassBitComesFirst)
{
    CreateKey("Diagnostics");
    ASSERT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    DiagGuard g(File("bits.txt").c_str());
    DiagGuard::SetThreadDiagGuardPtr(&g);
    SetDword("Diagnostics", "AllowDiagnostics", 1);

    DIAG_VERBOSE(kText, "verbose\n");              // 0x80 is clear in the default mask
    DIAG_MSG(kUnsetClass, "outside 1 to 42\n");   // a mask of 0
    EXPECT_EQ(GuardFields::Enable(g), FALSE) << "no switch was read";
    DIAG_MSG(kProgramClass, "program class\n");
    EXPECT_EQ(GuardFields::Enable(g), TRUE);

    GuardFields::SetMask(g, kText, 0x80 | 0x10);
    DIAG_MSG(kText, "message bit clear\n");
    DIAG_VERBOSE(kText, "verbose bit set\n");
    EXPECT_EQ(g.GetDiagMsg(), TRUE);
    EXPECT_EQ(Content("bits.txt"), "program class\r\nverbose bit set\r\n");
}

// A thread with no guard passes no gate, and its assertions go on.
TEST_F(DiagTest, AThreadWithoutAGuardPassesNoGate)
{
    AssignWithDiagnostics(1);
    DiagGuard g(File("main.txt").c_str());
    DiagGuard::SetThreadDiagGuardPtr(&g);
    unsigned result = tstest::RunOnOtherThread([] {
        if (DiagGuard::GetThreadDiagGuardPtr() != nullptr)
            return 1u;
        DIAG_MSG(kText, "nowhere\n");
        DIAG_ERR(kText, "nowhere\n");
        DIAG_ASSERT(kText, FALSE);
        return DiagGuard::Gate(kText, DiagGuard::ERROR_BIT) == nullptr ? 7u : 2u;
    });
    EXPECT_EQ(result, 7u);
    EXPECT_EQ(Content("main.txt"), "<missing>");
}

// Threads that share a guard write whole messages, each a chain of pieces.
TEST_F(DiagTest, MessagesOfThreadsSharingAGuardStayWhole)
{
    AssignWithDiagnostics(1);
    DiagGuard shared(File("shared.txt").c_str());
    constexpr int kThreads = 4, kMessages = 200;
    std::vector<HANDLE> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.push_back(tstest::StartThread([&shared, t] {
            DiagGuard::SetThreadDiagGuardPtr(&shared);
            for (int i = 0; i < kMessages; ++i)
                DIAG_MSG(kProgramClass, "<" << t << ":" << i << ":" << "payload-" << static_cast<long>(i) << ">\n");
            DiagGuard::SetThreadDiagGuardPtr(nullptr);
            return 0u;
        }));
    }
    for (HANDLE h : threads)
        EXPECT_EQ(tstest::ThreadResult(h), 0u);
    shared.FlushDiagFile();

    std::string text = Content("shared.txt");
    std::regex line(R"(<(\d+):(\d+):payload-(\d+)>\r\n)");
    std::vector<int> next(kThreads, 0);
    size_t pos = 0;
    std::smatch m;
    while (pos < text.size()) {
        std::string rest = text.substr(pos);
        ASSERT_TRUE(std::regex_search(rest, m, line, std::regex_constants::match_continuous))
            << "a broken message at byte " << pos << ": " << rest.substr(0, 60);
        int t = std::stoi(m[1]), i = std::stoi(m[2]);
        ASSERT_LT(t, kThreads);
        EXPECT_EQ(i, next[t]) << "thread " << t;
        EXPECT_EQ(std::stoi(m[3]), i);
        next[t] = i + 1;
        pos += m.length(0);
    }
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(next[t], kMessages) << "thread " << t;
}

// The report's ten pieces, also with diagnostics off when called directly.
TEST_F(DiagTest, FailedLineWritesTheReport)
{
    DiagGuard g(File("report.txt").c_str());
    EXPECT_EQ(g.GetDiagEnable(), FALSE);
    g.FailedLine("src\\Thing.cpp", 42, "Wed Jun  4 14:06:53 2003", "count > 0");
    EXPECT_EQ(Content("report.txt"), "\r\n\r\n**Tessavi Assertion Failed**\r\n     File: src\\Thing.cpp ,  Line: 42"
                                     "\r\n       Time/date of compile: Wed Jun  4 14:06:53 2003\r\n\r\n Assertion:"
                                     "\r\n  count > 0\r\n\r\n");
}

// A default-built guard shuts every gate and can be destroyed; a guard
// without a file name passes its gates and writes nowhere.
TEST_F(DiagTest, DefaultBuiltAndNamelessGuardsDoNoHarm)
{
    AssignWithDiagnostics(1);
    {
        DiagGuard placeholder;
        DiagGuard::SetThreadDiagGuardPtr(&placeholder);
        EXPECT_EQ(DiagGuard::Gate(kText, DiagGuard::ERROR_BIT), nullptr);
        DIAG_ASSERT(kText, FALSE);
        DiagGuard::SetThreadDiagGuardPtr(nullptr);
    }
    DiagGuard nameless(nullptr);
    DiagGuard::SetThreadDiagGuardPtr(&nameless);
    EXPECT_EQ(DiagGuard::Gate(kText, DiagGuard::MESSAGE_BIT), &nameless);
    DIAG_MSG(kText, "into no file\n");
    nameless.FailedLine("f", 1, "t", "e");
    nameless.FlushDiagFile();
}

// Taking the key away while guards read through it: the guards keep the
// switches they read last and read the registry no more.
TEST_F(DiagTest, UnassignTakesTheKeyFromLiveGuards)
{
    AssignWithDiagnostics(1);
    DiagGuard g(File("readers.txt").c_str());
    std::atomic<bool> stop{false};
    std::atomic<int> reads{0};
    std::vector<HANDLE> readers;
    for (int t = 0; t < 2; ++t) {
        readers.push_back(tstest::StartThread([&] {
            while (!stop) {
                if (g.GetDiagEnable() != TRUE || g.GetDiagMsg() != TRUE)
                    return 1u;
                ++reads;
            }
            return 0u;
        }));
    }
    auto awaitReads = [&](int n) { return tstest::Eventually([&] { return reads >= n; }); };
    ASSERT_TRUE(awaitReads(50));
    EXPECT_EQ(TessaviInitInfo::UnassignRegistryObjects(), TRUE);
    EXPECT_EQ(DiagGuard::initDiagRegKeyPtr, nullptr);
    EXPECT_EQ(GuardFields::Key(g), nullptr);
    EXPECT_TRUE(awaitReads(reads + 50)) << "the readers go on";
    stop = true;
    for (HANDLE h : readers)
        EXPECT_EQ(tstest::ThreadResult(h), 0u);

    SetDword("Diagnostics", "AllowDiagnostics", 0);
    EXPECT_EQ(g.GetDiagEnable(), TRUE) << "no more reads: the last value stands";
    ASSERT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    DiagGuard fresh(File("fresh.txt").c_str());
    EXPECT_EQ(fresh.GetDiagEnable(), FALSE);
    EXPECT_EQ(GuardFields::Key(g), nullptr) << "a new key reaches only new guards";
}

} // namespace
