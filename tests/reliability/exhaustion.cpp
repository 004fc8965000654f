// Running out: no file descriptor left, and a disk that fills under the
// registry, a log and a diagnostic-style file. The documented error comes
// back, nothing crashes, and once there is room again everything works
// and nothing written before is damaged.
#include "RegistryFixture.h"
#include "StoreIntegrity.h"
#include "ScratchDir.h"
#include "ServiceFixture.h"

#include <LogFile.h>
#include <afx.h>

#include <errno.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

namespace {

// A tmpfs of the given size at a new folder, unmounted at the end; empty
// path when this process may not mount (then the test skips).
class SmallDisk {
public:
    explicit SmallDisk(const char *size)
    {
        char tmpl[] = "/tmp/tsutil-full-XXXXXX";
        if (!mkdtemp(tmpl))
            return;
        folder_ = tmpl;
        if (mount("tsutil-full", folder_.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, (std::string("size=") + size).c_str()) != 0) {
            why_ = strerror(errno);
            rmdir(folder_.c_str());
            folder_.clear();
        }
    }
    ~SmallDisk()
    {
        if (!folder_.empty()) {
            umount2(folder_.c_str(), MNT_DETACH);
            rmdir(folder_.c_str());
        }
    }
    const std::string &path() const { return folder_; }
    const std::string &why() const { return why_; }
    // Room again: a file that took space goes.
    static void Free(const std::string &file) { unlink(file.c_str()); }

private:
    std::string folder_, why_;
};

// Fills the rest of the disk with one file; its path.
std::string Fill(const std::string &folder)
{
    std::string path = folder + "/filler";
    FILE *f = fopen(path.c_str(), "w");
    if (!f)
        return path;
    static char block[4096];
    while (fwrite(block, 1, sizeof block, f) == sizeof block) {
    }
    fclose(f);
    return path;
}

// Points TSUTIL_ROOT at a folder for the life of the object.
class RootAt {
public:
    explicit RootAt(const std::string &root)
    {
        const char *old = getenv("TSUTIL_ROOT");
        had_ = old != nullptr;
        if (old)
            old_ = old;
        setenv("TSUTIL_ROOT", root.c_str(), 1);
    }
    ~RootAt()
    {
        if (had_)
            setenv("TSUTIL_ROOT", old_.c_str(), 1);
        else
            unsetenv("TSUTIL_ROOT");
    }

private:
    bool had_ = false;
    std::string old_;
};

} // namespace

TEST(Exhaustion, NoFileDescriptorLeftGivesErrorsAndThenWorksAgain)
{
    tstest::ScopedMachineRoot root;
    std::string out;
    int rc = tstest::RunCaptured("fdprobe", root.path(), out);
    if (rc == 77)
        GTEST_SKIP() << "the sanitizers' own checks need free descriptors";
    EXPECT_EQ(rc, 0) << out;
    // Each call refused with an error of its own kind, none crashed.
    EXPECT_NE(out.find("exhausted file 4 "), std::string::npos) << out; // ERROR_TOO_MANY_OPEN_FILES
    EXPECT_EQ(out.find("exhausted file 0 "), std::string::npos) << out;
    EXPECT_EQ(out.find("registry 0 services"), out.rfind("registry 0 services")) << out;
    EXPECT_NE(out.find("afterwards file 0 registry 0 services 0 log 0"), std::string::npos) << out;
    EXPECT_EQ(tstest::StopManager(), 0);
}

TEST(Exhaustion, FullDiskUnderTheRegistryFailsWritesAndLosesNothing)
{
    SmallDisk disk("1m");
    if (disk.path().empty())
        GTEST_SKIP() << "cannot mount a small tmpfs here: " << disk.why();
    std::string rootPath = disk.path() + "/root";
    RootAt root(rootPath);
    HKEY k;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Full", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k, nullptr),
              ERROR_SUCCESS);
    // What is written before the disk fills must survive.
    for (DWORD i = 0; i < 50; ++i)
        ASSERT_EQ(RegSetValueExA(k, ("kept" + std::to_string(i)).c_str(), 0, REG_DWORD, reinterpret_cast<BYTE *>(&i), 4),
                  ERROR_SUCCESS);
    ASSERT_EQ(RegFlushKey(k), ERROR_SUCCESS);
    std::string filler = Fill(disk.path());
    std::string big(64 * 1024, 'x');
    LONG r = ERROR_SUCCESS;
    int written = 0;
    for (; written < 64 && r == ERROR_SUCCESS; ++written) {
        r = RegSetValueExA(k, ("big" + std::to_string(written)).c_str(), 0, REG_BINARY,
                           reinterpret_cast<const BYTE *>(big.data()), static_cast<DWORD>(big.size()));
        if (r == ERROR_SUCCESS)
            r = RegFlushKey(k);
    }
    EXPECT_EQ(r, ERROR_DISK_FULL) << "after " << written << " large values";
    // Reads still work, and what was there is whole.
    for (DWORD i = 0; i < 50; ++i) {
        DWORD v = ~0u;
        ASSERT_EQ(tstest::GetDword(k, "kept" + std::to_string(i), v), ERROR_SUCCESS) << i;
        EXPECT_EQ(v, i);
    }
    SmallDisk::Free(filler);
    // Room again: writes work, and the store is whole.
    DWORD v = 1;
    EXPECT_EQ(RegSetValueExA(k, "after", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4), ERROR_SUCCESS);
    EXPECT_EQ(RegFlushKey(k), ERROR_SUCCESS);
    RegCloseKey(k);
    EXPECT_EQ(tstest::IntegrityOf(rootPath + "/registry.db"), "ok");
}

TEST(Exhaustion, FullDiskUnderALogAndADiagnosticFileThrowsAndRecovers)
{
    SmallDisk disk("256k");
    if (disk.path().empty())
        GTEST_SKIP() << "cannot mount a small tmpfs here: " << disk.why();
    std::string folder = disk.path() + "/logs";
    std::string filler;
    {
        LogFile log(folder.c_str(), 1);
        log.Open("service", 0);
        log.Log("before the disk filled\n");
        filler = Fill(disk.path());
        std::string record(1024, 'r');
        record += '\n';
        int thrown = 0;
        for (int i = 0; i < 1024 && !thrown; ++i) {
            try {
                log.Log(record.c_str());
            } catch (int e) {
                thrown = e;
            }
        }
        EXPECT_EQ(thrown, ENOSPC) << "a full disk is the errno LogFile throws";
        log.Log("lost: the log closed\n");
        log.Close();
        std::string kept = tstest::ReadWholeFile(folder + "/service.log");
        EXPECT_EQ(kept.compare(0, 24, std::string("before the disk filled\n") + '\0'), 0);
    }
    // A file written through CFile, as the diagnostic streams write theirs.
    {
        CFile diag;
        ASSERT_TRUE(diag.Open((disk.path() + "/diag.txt").c_str(), CFile::modeCreate | CFile::modeWrite));
        std::string block(4096, 'd');
        int cause = -1;
        try {
            for (int i = 0; i < 1024; ++i) {
                diag.Write(block.data(), static_cast<UINT>(block.size()));
                diag.Flush();
            }
        } catch (CFileException *e) {
            cause = e->m_cause;
            e->Delete();
        }
        EXPECT_EQ(cause, static_cast<int>(CFileException::diskFull));
        diag.Abort();
    }
    SmallDisk::Free(filler);
    // Room again: the log opens anew and takes records; what it held
    // before the disk filled is whole up to the first lost record.
    LogFile again(folder.c_str(), 1);
    again.Open("service", 0);
    again.Log("after\n");
    again.Close();
    std::string text = tstest::ReadWholeFile(folder + "/service.log");
    EXPECT_EQ(text, std::string("after\n") + '\0');
}
