// Files on the POSIX layer: creation dispositions, share modes within one
// process (racing opens too), the read-only attribute, and directory
// searches with wildcards.
#include "ScratchDir.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <string>

namespace {

using tstest::ReadWholeFile;
using tstest::ScratchDir;
using tstest::WriteWholeFile;

HANDLE Open(const std::string &path, DWORD access, DWORD share, DWORD disposition)
{
    return CreateFileA(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

TEST(FilesTest, Dispositions)
{
    ScratchDir dir;
    std::string path = dir / "f.txt";
    HANDLE h = Open(path, GENERIC_READ, 0, OPEN_EXISTING);
    EXPECT_EQ(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Open(dir / "no\\f.txt", GENERIC_WRITE, 0, CREATE_ALWAYS), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));

    h = Open(path, GENERIC_WRITE, 0, CREATE_NEW);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    DWORD n = 0;
    EXPECT_TRUE(WriteFile(h, "hello", 5, &n, nullptr));
    EXPECT_EQ(n, 5u);
    EXPECT_EQ(GetFileSize(h, nullptr), 5u);
    EXPECT_TRUE(FlushFileBuffers(h));
    EXPECT_TRUE(CloseHandle(h));
    EXPECT_EQ(tstest::ErrorOf(CloseHandle(h)), static_cast<DWORD>(ERROR_INVALID_HANDLE));

    EXPECT_EQ(Open(path, GENERIC_WRITE, 0, CREATE_NEW), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_EXISTS));

    h = Open(path, GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(SetFilePointer(h, 1, nullptr, FILE_BEGIN), 1u);
    char buf[8] = {};
    EXPECT_TRUE(ReadFile(h, buf, sizeof buf, &n, nullptr));
    EXPECT_EQ(std::string(buf, n), "ello");
    EXPECT_EQ(SetFilePointer(h, -10, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NEGATIVE_SEEK));
    CloseHandle(h);

    h = Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(GetFileSize(h, nullptr), 0u);
    // Reading from a handle opened for writing only is refused.
    EXPECT_FALSE(ReadFile(h, buf, 1, &n, nullptr));
    CloseHandle(h);

    // A folder opens only with backup semantics.
    EXPECT_EQ(Open(dir.path(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST(FilesTest, ShareModesWithinOneProcess)
{
    ScratchDir dir;
    std::string path = dir / "shared.txt";
    ASSERT_TRUE(WriteWholeFile(path, "content"));

    HANDLE writer = Open(path, GENERIC_WRITE, FILE_SHARE_READ, OPEN_EXISTING);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    // Another writer is refused, whatever it would share.
    EXPECT_EQ(Open(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    // A reader that denies writing is refused too: writing is under way.
    EXPECT_EQ(Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    // Truncation that conflicts empties nothing.
    EXPECT_EQ(Open(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, CREATE_ALWAYS), INVALID_HANDLE_VALUE);
    EXPECT_EQ(ReadWholeFile(path), "content");
    HANDLE reader = Open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
    EXPECT_NE(reader, INVALID_HANDLE_VALUE);
    // Deleting needs FILE_SHARE_DELETE from every open.
    EXPECT_EQ(tstest::ErrorOf(DeleteFileA(path.c_str())), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    CloseHandle(reader);
    CloseHandle(writer);

    HANDLE again = Open(path, GENERIC_WRITE, 0, OPEN_EXISTING);
    EXPECT_NE(again, INVALID_HANDLE_VALUE);
    CloseHandle(again);
    EXPECT_TRUE(DeleteFileA(path.c_str()));
    EXPECT_EQ(GetFileAttributesA(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

// An open that shares everything takes no lock of its own, yet it is
// refused by what others deny and holds its access against later opens.
TEST(FilesTest, OpensThatShareEverythingStillCount)
{
    ScratchDir dir;
    std::string path = dir / "all.txt";
    ASSERT_TRUE(WriteWholeFile(path, "x"));
    const DWORD all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

    HANDLE denier = Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    ASSERT_NE(denier, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Open(path, GENERIC_WRITE, all, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(Open(path, DELETE, all, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    HANDLE reader = Open(path, GENERIC_READ, all, OPEN_EXISTING);
    EXPECT_NE(reader, INVALID_HANDLE_VALUE);
    CloseHandle(denier);

    // The reader that shares everything keeps out an open that denies reading.
    EXPECT_EQ(Open(path, GENERIC_WRITE, FILE_SHARE_WRITE, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    HANDLE writer = Open(path, GENERIC_WRITE, all, OPEN_EXISTING);
    EXPECT_NE(writer, INVALID_HANDLE_VALUE);
    // And the two of them keep out a reader that denies writing.
    EXPECT_EQ(Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    CloseHandle(writer);
    CloseHandle(reader);
    HANDLE alone = Open(path, GENERIC_READ, 0, OPEN_EXISTING);
    EXPECT_NE(alone, INVALID_HANDLE_VALUE);
    CloseHandle(alone);
}

// Two threads open the same file over and over, one sharing everything and
// one denying what the other asks: never are both opens held at once, and
// both get through some of the time.
struct ShareRace {
    std::string path;
    DWORD access[2];
    DWORD share[2];
    std::atomic<int> holding[2];
    std::atomic<int> overlaps{0};
    std::atomic<int> successes[2];
};

DWORD WINAPI RaceOpens(LPVOID arg)
{
    auto *race = static_cast<std::pair<ShareRace *, int> *>(arg);
    ShareRace &r = *race->first;
    int me = race->second;
    // A thread that has not got through yet goes on a while: on a loaded
    // machine the other's holds can cover all of its first tries.
    for (int i = 0; i < 3000 || (r.successes[me].load() == 0 && i < 30000); ++i) {
        HANDLE h = Open(r.path, r.access[me], r.share[me], OPEN_EXISTING);
        if (h == INVALID_HANDLE_VALUE)
            continue;
        // Held for a while, and looked at twice: of two holds that overlap,
        // the later one to be marked sees the other.
        r.holding[me].store(1);
        bool overlap = r.holding[1 - me].load() != 0;
        SwitchToThread();
        overlap = overlap || r.holding[1 - me].load() != 0;
        if (overlap)
            r.overlaps.fetch_add(1);
        r.successes[me].fetch_add(1);
        r.holding[me].store(0);
        CloseHandle(h);
    }
    return 0;
}

TEST(FilesTest, RacingConflictingOpensNeverBothHold)
{
    ScratchDir dir;
    ShareRace r;
    r.path = dir / "race.txt";
    ASSERT_TRUE(WriteWholeFile(r.path, "x"));
    r.access[0] = GENERIC_READ | GENERIC_WRITE;
    r.share[0] = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    r.access[1] = GENERIC_READ;
    r.share[1] = FILE_SHARE_READ;
    for (int i = 0; i < 2; ++i) {
        r.holding[i] = 0;
        r.successes[i] = 0;
    }
    std::pair<ShareRace *, int> args[2] = {{&r, 0}, {&r, 1}};
    HANDLE threads[2];
    for (int i = 0; i < 2; ++i) {
        threads[i] = CreateThread(nullptr, 0, RaceOpens, &args[i], 0, nullptr);
        ASSERT_NE(threads[i], nullptr);
    }
    ASSERT_EQ(WaitForMultipleObjects(2, threads, TRUE, 120000), WAIT_OBJECT_0);
    for (HANDLE t : threads)
        CloseHandle(t);
    EXPECT_EQ(r.overlaps.load(), 0);
    EXPECT_GT(r.successes[0].load(), 0);
    EXPECT_GT(r.successes[1].load(), 0);
}

TEST(FilesTest, ReadOnlyAttribute)
{
    ScratchDir dir;
    std::string path = dir / "ro.txt";
    ASSERT_TRUE(WriteWholeFile(path, "keep"));
    DWORD a = GetFileAttributesA(path.c_str());
    EXPECT_FALSE(a & FILE_ATTRIBUTE_READONLY);
    EXPECT_FALSE(a & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(GetFileAttributesA(dir.path().c_str()) & FILE_ATTRIBUTE_DIRECTORY, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));

    ASSERT_TRUE(SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(GetFileAttributesA(path.c_str()) & FILE_ATTRIBUTE_READONLY);
    TS_SKIP_ON_WINE("Wine run as root opens a read-only file for writing");
    EXPECT_EQ(Open(path, GENERIC_WRITE, FILE_SHARE_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    HANDLE r = Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    EXPECT_NE(r, INVALID_HANDLE_VALUE);
    CloseHandle(r);
    EXPECT_EQ(tstest::ErrorOf(DeleteFileA(path.c_str())), static_cast<DWORD>(ERROR_ACCESS_DENIED));

    ASSERT_TRUE(SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL));
    HANDLE w = Open(path, GENERIC_WRITE, 0, OPEN_EXISTING);
    EXPECT_NE(w, INVALID_HANDLE_VALUE);
    CloseHandle(w);
}

std::set<std::string> Find(const std::string &pattern)
{
    std::set<std::string> names;
    WIN32_FIND_DATAA data;
    HANDLE h = FindFirstFileA(pattern.c_str(), &data);
    if (h == INVALID_HANDLE_VALUE)
        return names;
    do
        names.insert(data.cFileName);
    while (FindNextFileA(h, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    EXPECT_TRUE(FindClose(h));
    return names;
}

TEST(FilesTest, SearchesWithWildcards)
{
    ScratchDir dir;
    for (const char *name : {"a.txt", "b.txt", "c.log", "ab.txt.bak"})
        ASSERT_TRUE(WriteWholeFile(dir / name, name));
    ASSERT_TRUE(CreateDirectoryA((dir / "sub").c_str(), nullptr));

    using Names = std::set<std::string>;
    EXPECT_EQ(Find(dir / "*.txt"), (Names{"a.txt", "b.txt"}));
    EXPECT_EQ(Find(dir / "?.log"), (Names{"c.log"}));
    EXPECT_EQ(Find(dir / "a*"), (Names{"a.txt", "ab.txt.bak"}));
    EXPECT_EQ(Find(dir / "*.*"), (Names{".", "..", "a.txt", "b.txt", "c.log", "ab.txt.bak", "sub"}));
    EXPECT_EQ(Find(dir / "sub"), (Names{"sub"}));

    WIN32_FIND_DATAA data;
    HANDLE h = FindFirstFileA((dir / "c.log").c_str(), &data);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(data.nFileSizeLow, 5u);
    EXPECT_FALSE(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_TRUE(FindClose(h));
    if (!tstest::RunningUnderWine()) { // Wine does not notice a search closed twice
        EXPECT_EQ(tstest::ErrorOf(FindClose(h)), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }

    EXPECT_EQ(FindFirstFileA((dir / "*.none").c_str(), &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(FindFirstFileA((dir / "absent\\*").c_str(), &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(FindFirstFileA((dir.path() + "\\").c_str(), &data), INVALID_HANDLE_VALUE);
}

} // namespace
