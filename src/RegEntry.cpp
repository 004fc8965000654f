// RegistryEntry: names, paths and the class-wide registry defaults.
#include "RegEntry.h"

#include "DDUMPC.h"
#include "RegKey.h"

#include <mbstring.h>
#include <stdio.h>
#include <string.h>

#include <cassert>

HKEY const RegistryEntry::HANDLE_NOT_AVAIL = nullptr;
int RegistryEntry::regStringMaxLength = 255;
int RegistryEntry::regEntryNameDefaultMaxLength = 255;
HKEY RegistryEntry::defaultBaseHive = HKEY_LOCAL_MACHINE;
char RegistryEntry::defaultParentKeyPath[512] = "";

namespace {

// The hives known by name, in the order in which a name is looked up.
struct HiveName {
    char const *name;
    HKEY hive;
};
HiveName const kHives[] = {
    {"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE}, {"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
    {"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},   {"HKEY_USERS", HKEY_USERS},
    {"HKEY_DYN_DATA", HKEY_DYN_DATA},           {"HKEY_CURRENT_CONFIG", HKEY_CURRENT_CONFIG},
};

// The longest default parent path, in characters, plus one.
const size_t kDefaultPathCharacters = 255;

// first, then separator and second when both are non-empty, in a new block.
char *Join(char const *first, char const *separator, char const *second)
{
    size_t a = strlen(first), s = strlen(separator), b = strlen(second);
    char *joined = static_cast<char *>(GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, a + s + b + 1));
    if (joined) {
        memcpy(joined, first, a);
        memcpy(joined + a, separator, s);
        memcpy(joined + a + s, second, b);
    }
    return joined;
}

} // namespace

char *RegistryEntry::CopyText(char const *text) { return text ? Join(text, "", "") : nullptr; }

void RegistryEntry::FreeText(char *text)
{
    if (text && GlobalFree(text) != nullptr)
        assert(!"GlobalFree refused a private copy");
}

RegistryEntry::RegistryEntry()
    : parentKeyPtr(nullptr), localName(nullptr), baseHive(HKEY_LOCAL_MACHINE), parentKeyPath(nullptr),
      fullPath(nullptr), fullPathWithBase(nullptr)
{
}

RegistryEntry::RegistryEntry(char const *name, BOOLTYPE underDefaultPath)
    : RegistryEntry(defaultBaseHive, name, underDefaultPath)
{
}

RegistryEntry::RegistryEntry(HKEY hive, char const *name, BOOLTYPE underDefaultPath)
    : parentKeyPtr(nullptr), localName(nullptr), baseHive(hive), parentKeyPath(nullptr), fullPath(nullptr),
      fullPathWithBase(nullptr)
{
    if (!name)
        return; // a placeholder: nothing to name
    localName = CopyText(name);
    parentKeyPath = CopyText(underDefaultPath == TRUE ? defaultParentKeyPath : "");
}

RegistryEntry::RegistryEntry(char const *name, RegistryKey &parent)
    : parentKeyPtr(&parent), localName(nullptr), baseHive(parent.GetBaseHiveHandle()), parentKeyPath(nullptr),
      fullPath(nullptr), fullPathWithBase(nullptr)
{
    char const *parentPath = static_cast<RegistryEntry &>(parent).GetFullPath();
    if (!name || !parentPath)
        return; // a placeholder below a placeholder, or no name
    localName = CopyText(name);
    parentKeyPath = CopyText(parentPath);
}

RegistryEntry::~RegistryEntry()
{
    FreeText(localName);
    FreeText(parentKeyPath);
    FreeText(fullPath.load());
    FreeText(fullPathWithBase.load());
}

char const *RegistryEntry::Publish(std::atomic<char *> &cache, char *built)
{
    if (!built)
        return nullptr;
    char *expected = nullptr;
    if (cache.compare_exchange_strong(expected, built, std::memory_order_acq_rel))
        return built;
    FreeText(built); // another thread was first; its copy is the same text
    return expected;
}

char const *RegistryEntry::GetFullPath()
{
    if (char const *cached = fullPath.load(std::memory_order_acquire))
        return cached;
    if (!localName || !parentKeyPath)
        return nullptr;
    char *built;
    if (!*localName)
        built = CopyText(parentKeyPath);
    else if (!*parentKeyPath)
        built = CopyText(localName);
    else
        built = Join(parentKeyPath, _TBS, localName);
    return Publish(fullPath, built);
}

char const *RegistryEntry::GetFullPathWithBase()
{
    if (char const *cached = fullPathWithBase.load(std::memory_order_acquire))
        return cached;
    char const *path = GetFullPath();
    if (!path)
        return nullptr;
    char number[16];
    char const *hiveName = EquivalentBaseHiveString(baseHive);
    if (!hiveName) {
        // Handles are 32-bit values on every Windows; the low word names it.
        snprintf(number, sizeof number, "0x%lX",
                 static_cast<unsigned long>(static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(baseHive))));
        hiveName = number;
    }
    return Publish(fullPathWithBase, Join(hiveName, _TBS, path));
}

void RegistryEntry::Dump(DiagDumpContext &stream) { stream << GetFullPathWithBase(); }

BOOLTYPE RegistryEntry::SetRegistryDefaults(char const *parentPath, HKEY hive, int stringMaxLength,
                                            int nameMaxLength)
{
    if (parentPath) {
        unsigned char const *path = reinterpret_cast<unsigned char const *>(parentPath);
        if (_mbslen(path) >= kDefaultPathCharacters || strlen(parentPath) >= sizeof defaultParentKeyPath)
            return FALSE;
        strcpy(defaultParentKeyPath, parentPath);
    }
    if (hive)
        defaultBaseHive = hive;
    if (stringMaxLength)
        regStringMaxLength = stringMaxLength;
    if (nameMaxLength)
        regEntryNameDefaultMaxLength = nameMaxLength;
    return TRUE;
}

HKEY RegistryEntry::EquivalentBaseHiveHandle(char const *name)
{
    if (!name)
        return nullptr;
    for (HiveName const &h : kHives)
        if (_mbsicmp(reinterpret_cast<unsigned char const *>(name), reinterpret_cast<unsigned char const *>(h.name)) ==
            0)
            return h.hive;
    return nullptr;
}

char const *RegistryEntry::EquivalentBaseHiveString(HKEY const &hive)
{
    for (HiveName const &h : kHives)
        if (h.hive == hive)
            return h.name;
    return nullptr;
}
