// RegistryEntry: the base of every object that names something in the
// registry, keys (RegKey.h) and typed values (RegValue.h). It holds the
// names that locate the thing and builds its path; it opens, reads and
// writes nothing.
//
// An entry lives below a hive (baseHive) at parentKeyPath, a path below the
// hive, under its own localName; its full path is the two joined by one
// backslash, with no normalising of any kind (an empty part adds no
// separator). Four class-wide defaults, set once at start-up through
// SetRegistryDefaults, say under which hive and key the objects built by
// name alone live and how long names and strings may be.
//
// An entry's names never change, and its two path caches fill on the first
// request and stay for its life. The first fill is safe when many threads
// ask at once (values built under one shared key do). Entries are not
// copyable.
#pragma once

#include "TSDefs.h"

#include <atomic>

class DiagDumpContext;
class RegistryKey;

class TSUTIL_API RegistryEntry {
public:
    // The value that stands for no handle: what a RegistryKey holds while it
    // is not open. A null handle, not a pseudo-handle.
    static HKEY const HANDLE_NOT_AVAIL;

    // A placeholder: HKEY_LOCAL_MACHINE (defaults not read), no names, no
    // paths (the path requests give null).
    RegistryEntry();
    // Below defaultBaseHive. With underDefaultPath exactly TRUE and a
    // non-empty defaultParentKeyPath, the entry lives at that path;
    // otherwise its parent path is empty and name is the whole path below
    // the hive. name is kept whole, separators and all. A null name gives a
    // placeholder as the default constructor does (but with this hive).
    RegistryEntry(char const *name, BOOLTYPE underDefaultPath);
    // The same below the given hive (which may be any open key handle).
    RegistryEntry(HKEY hive, char const *name, BOOLTYPE underDefaultPath);
    // Inside parent: its hive, and its full path as it is now. The parent
    // is not owned and must outlive every use of the entry through it.
    RegistryEntry(char const *name, RegistryKey &parent);
    // Frees the names and paths; leaves the parent key alone.
    virtual ~RegistryEntry();

    RegistryEntry(RegistryEntry const &) = delete;
    RegistryEntry &operator=(RegistryEntry const &) = delete;

    // Writes the path with the hive's name in front through the stream's
    // text operator, with no line end; "(NULL)" for a placeholder.
    virtual void Dump(DiagDumpContext &stream);

    // The class-wide defaults, in this order: parent path, hive, the longest
    // string value read (bytes), the capacity of a name in the string forms
    // of the key enumeration. Null or 0 leaves a default as it is; an empty
    // path clears the default path. FALSE, with nothing changed at all, for
    // a path of 255 or more characters. Not thread-safe: a start-up call,
    // made before any registry object is built. Existing entries keep the
    // hive and path that they were built with; the two lengths apply to
    // every object from its next use.
    static BOOLTYPE SetRegistryDefaults(char const *parentPath, HKEY hive, int stringMaxLength,
                                        int nameMaxLength);
    // The hive of a name such as "HKEY_LOCAL_MACHINE" (case ignored); null
    // for a name not among the six.
    static HKEY EquivalentBaseHiveHandle(char const *name);
    // The name of one of the six hives; null for any other handle. Static
    // text.
    static char const *EquivalentBaseHiveString(HKEY const &hive);

    // The names as built; null where the entry has none.
    HKEY GetBaseHiveHandle() const { return baseHive; }
    char const *GetLocalName() const { return localName; }
    char const *GetParentKeyPath() const { return parentKeyPath; }

protected:
    // The path below the hive, owned by the entry; null for a placeholder or
    // when no memory could be had.
    char const *GetFullPath();
    // The hive's name, one backslash, the path ("HKEY_CURRENT_USER\" for an
    // empty path); a hive without a name is written as its handle value in
    // hexadecimal ("0x80000004\..."). Owned by the entry; null as above.
    char const *GetFullPathWithBase();

    // Private copies live in zero-filled blocks of this heap.
    static char *CopyText(char const *text);
    static void FreeText(char *text);

    static int regStringMaxLength;           // 255
    static int regEntryNameDefaultMaxLength; // 255
    static HKEY defaultBaseHive;             // HKEY_LOCAL_MACHINE
    // Room for every path of fewer than 255 characters, two bytes each.
    static char defaultParentKeyPath[512];   // empty

    RegistryKey *parentKeyPtr;
    char *localName;
    HKEY baseHive;
    char *parentKeyPath;

private:
    // Publishes built as the cache's value unless another thread was
    // first; gives the value that stays.
    static char const *Publish(std::atomic<char *> &cache, char *built);

    std::atomic<char *> fullPath;
    std::atomic<char *> fullPathWithBase;
};
static_assert(sizeof(std::atomic<char *>) == sizeof(char *), "a path cache is one pointer wide");
