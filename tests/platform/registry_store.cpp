// Where the POSIX layer keeps the registry: one database per machine root,
// readable by its owner only.
#include "RegistryFixture.h"

#include <filesystem>

using tstest::RegistryTest;

TEST_F(RegistryTest, StoreFilesAreTheOwnersOnly)
{
    TS_SKIP_ON_WINE("the registry of Windows is the system's own");
    namespace fs = std::filesystem;
    using p = fs::perms;
    fs::path root(root_.path());
    EXPECT_EQ(fs::status(root).permissions() & p::all, p::owner_all);
    for (const char *file : {"registry.db", "registry.db-wal", "registry.db-shm", "registry.db-seq"}) {
        ASSERT_TRUE(fs::exists(root / file)) << file;
        EXPECT_EQ(fs::status(root / file).permissions() & p::all, p::owner_read | p::owner_write) << file;
    }
}
