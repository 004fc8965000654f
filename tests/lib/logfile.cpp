// LogFile: the day-of-month ring across a change of day (the date comes
// from a source the test moves), the texts on standard output, failures
// thrown as errno with the lock free, copies, and writers in many threads.
#include "LogFile.h"

#include "ScratchDir.h"

#include <errno.h>
#include <stdio.h>

#include <atomic>
#include <string>
#include <vector>

namespace {

using tstest::ReadWholeFile;
using tstest::ScratchDir;

std::atomic<int> fakeDay{4};

void FakeDate(char *mmddyy) { sprintf(mmddyy, "11/%02d/26", fakeDay.load()); }

// Puts the log's calendar on fakeDay for one test.
class LogFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakeDay = 4;
        previous_ = LogFile::SetDateSource(FakeDate);
    }
    void TearDown() override { LogFile::SetDateSource(previous_); }
    std::string Logs() { return dir / "logs"; }
    ScratchDir dir;
    LogFile::DateSource previous_ = nullptr;
};

void StartCapture() { ::testing::internal::CaptureStdout(); }
std::string EndCapture() { return ::testing::internal::GetCapturedStdout(); }

TEST_F(LogFileTest, RingMovesToTheNewDayAtTheFirstRecord)
{
    LogFile log(Logs().c_str(), 1);
    StartCapture();
    log.Open("app", 1);
    EXPECT_EQ(EndCapture(), "Creating Directory " + Logs() + "\n");
    log.Log("abc");
    log.Log("%s", "abc");
    EXPECT_EQ(ReadWholeFile(Logs() + "\\app04.log"), std::string("abc\0abc", 7));

    fakeDay = 14;
    StartCapture();
    log.Log("new day");
    EXPECT_EQ(EndCapture(),
              "Switching Log file " + Logs() + "\\app04.log to " + Logs() + "\\app14.log\n");
    log.Log("%d", 2);
    EXPECT_EQ(ReadWholeFile(Logs() + "\\app14.log"), std::string("new day\0" "2", 9));
    EXPECT_EQ(ReadWholeFile(Logs() + "\\app04.log"), std::string("abc\0abc", 7)); // stays as it was

    // A month later the 4th comes round again: its file is emptied.
    fakeDay = 4;
    StartCapture();
    log.Log("%s", "again");
    EndCapture();
    EXPECT_EQ(ReadWholeFile(Logs() + "\\app04.log"), "again");
}

TEST_F(LogFileTest, PlainModeKeepsItsName)
{
    ASSERT_TRUE(CreateDirectoryA(Logs().c_str(), nullptr));
    LogFile log(Logs().c_str(), 0);
    StartCapture();
    log.Open("app", 0);
    log.Log("%s", "one");
    fakeDay = 5; // mode 0 makes no day check
    log.Log("%s", "two");
    std::string out = EndCapture();
    EXPECT_EQ(out, "");
    EXPECT_EQ(ReadWholeFile(Logs() + "\\app.log"), "onetwo");
    // A second Open of an open log changes neither file nor name.
    log.Open("other", 1);
    log.Log("%s", "three");
    EXPECT_EQ(ReadWholeFile(Logs() + "\\app.log"), "onetwothree");
    EXPECT_EQ(GetFileAttributesA((Logs() + "\\other05.log").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(LogFileTest, ClosedLogsSayWhereTheyAreNot)
{
    LogFile log(Logs().c_str(), 1);
    StartCapture();
    log.Log("before any open");
    EXPECT_EQ(EndCapture(), "Logfile <> not open...\n");

    StartCapture();
    log.Open("app", 2); // no file for this mode, and nothing said but the directory
    log.Log("lost");
    EXPECT_EQ(EndCapture(), "Creating Directory " + Logs() + "\nLogfile <" + Logs() + "\\app> not open...\n");

    log.Open("app", 1);
    log.Log("%s", "kept");
    log.Close();
    log.Close();
    StartCapture();
    log.Log("lost");
    EXPECT_EQ(EndCapture(), "Logfile <" + Logs() + "\\app04.log> not open...\n");
    log.Open("app", 1); // starts anew: the file is emptied
    EXPECT_EQ(ReadWholeFile(Logs() + "\\app04.log"), "");
}

TEST_F(LogFileTest, FailuresThrowErrnoWithTheLockFree)
{
    std::string deep = dir / "missing\\logs";
    LogFile log(deep.c_str(), 1);
    StartCapture();
    int thrown = 0;
    try {
        log.Open("app", 1);
    } catch (int e) {
        thrown = e;
    }
    std::string out = EndCapture();
    EXPECT_EQ(thrown, ENOENT);
    EXPECT_EQ(out, "Creating Directory " + deep + "\nUnable to create driectory " + deep + "\n");

    // Another thread gets the lock at once.
    HANDLE h = tstest::StartThread([&] {
        ::testing::internal::CaptureStdout();
        log.Log("x");
        ::testing::internal::GetCapturedStdout();
        return 0u;
    });
    EXPECT_TRUE(tstest::Joined(h));
}

TEST_F(LogFileTest, FailedSwitchClosesTheLog)
{
    TS_SKIP_ON_WINE("Wine run as root opens a read-only file for writing");
    LogFile log(Logs().c_str(), 1);
    StartCapture();
    log.Open("app", 1);
    EndCapture();
    ASSERT_TRUE(tstest::WriteWholeFile(Logs() + "\\app05.log", "old"));
    ASSERT_TRUE(SetFileAttributesA((Logs() + "\\app05.log").c_str(), FILE_ATTRIBUTE_READONLY));
    fakeDay = 5;
    StartCapture();
    int thrown = 0;
    try {
        log.Log("x");
    } catch (int e) {
        thrown = e;
    }
    EXPECT_EQ(thrown, EACCES);
    EXPECT_EQ(EndCapture(), "Switching Log file " + Logs() + "\\app04.log");
    StartCapture();
    log.Log("y"); // the day is already taken: no second try, the log is closed
    EXPECT_EQ(EndCapture(), "Logfile <" + Logs() + "\\app05.log> not open...\n");
    SetFileAttributesA((Logs() + "\\app05.log").c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(LogFileTest, CopiesAreOneLog)
{
    StartCapture();
    {
        LogFile original(Logs().c_str(), 1);
        original.Open("app", 0);
        {
            LogFile copy(original);
            copy.Log("%s", "from the copy;");
            LogFile assigned(Logs().c_str(), 0);
            assigned = copy;
            assigned.Close(); // closes the one stream of all three
        }
        original.Log("%s", "lost");
        original.Open("app", 0);
        original.Log("%s", "after");
    }
    std::string out = EndCapture();
    EXPECT_NE(out.find("not open..."), std::string::npos);
    EXPECT_EQ(ReadWholeFile(Logs() + "\\app.log"), "after");
}

TEST_F(LogFileTest, ThreadsShareOneLogAndOneSwitch)
{
    LogFile log(Logs().c_str(), 1);
    StartCapture();
    log.Open("mt", 1);
    const int kThreads = 4, kRecords = 400;
    std::vector<HANDLE> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.push_back(tstest::StartThread([&, t] {
            for (int i = 0; i < kRecords; ++i) {
                if (t == 0 && i == kRecords / 2)
                    fakeDay = 5;
                log.Log("%d-%d;", t, i);
            }
            return 0u;
        }));
    bool ended = true;
    for (HANDLE h : threads) {
        ended &= WaitForSingleObject(h, tstest::kWaitBound) == WAIT_OBJECT_0;
        CloseHandle(h);
    }
    std::string out = EndCapture();
    ASSERT_TRUE(ended);
    EXPECT_EQ(out, "Creating Directory " + Logs() + "\nSwitching Log file " + Logs() + "\\mt04.log to " + Logs() +
                       "\\mt05.log\n");
    std::string all = ReadWholeFile(Logs() + "\\mt04.log") + ReadWholeFile(Logs() + "\\mt05.log");
    // Every record whole, none lost.
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kRecords; ++i) {
            std::string rec = std::to_string(t) + "-" + std::to_string(i) + ";";
            ASSERT_NE(all.find(rec), std::string::npos) << rec;
        }
    size_t records = 0;
    for (char c : all)
        records += c == ';';
    EXPECT_EQ(records, static_cast<size_t>(kThreads * kRecords));
}

} // namespace
