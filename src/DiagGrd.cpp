// DiagGuard: switches, masks, the registry reads behind the switches and the
// assertion report.
#include "DiagGrd.h"

#include "RegKey.h"
#include "RegValue.h"

#include <stdlib.h>

#include <algorithm>
#include <vector>

TSUTIL_THREAD_SLOT DiagGuard *threadDiagGuardPtr = nullptr;

BOOLTYPE DiagGuard::initDiagEnable = FALSE;
BOOLTYPE DiagGuard::initDiagAst = FALSE;
BOOLTYPE DiagGuard::initDiagAstv = FALSE;
BOOLTYPE DiagGuard::initDiagErr = TRUE;
BOOLTYPE DiagGuard::initDiagMsg = TRUE;
BOOLTYPE DiagGuard::initMonitorDiagFlags = TRUE;
BOOLTYPE DiagGuard::initDiagPath = FALSE;
BOOLTYPE DiagGuard::initDiagWhere = FALSE;
RegistryKey *DiagGuard::initDiagRegKeyPtr = nullptr;

const DiagGuard::ClassNameIndex DiagGuard::CLASS_INDEX;

namespace {

// The switch fields are words that any thread sharing a guard may read and
// overwrite at any time (the last writer wins): they are read and written
// whole, as atomic words without ordering.
BOOLTYPE LoadSwitch(BOOLTYPE const *field) { return __atomic_load_n(field, __ATOMIC_RELAXED); }
void StoreSwitch(BOOLTYPE *field, BOOLTYPE value) { __atomic_store_n(field, value, __ATOMIC_RELAXED); }

// The "Diagnostics" key is shared by every guard that copied it and is
// deleted by TessaviInitInfo at the program's end. This lock keeps the
// deletion apart from the reads through it, and the list names the guards
// that hold a copy, so that the deletion can take it from them first. It
// also makes the key's first path request (inside the first read) safe.
// The lock and the list are never destroyed: a guard that is a static
// object of a program may end after this library's statics.
class KeyHolders {
public:
    static KeyHolders &Get()
    {
        static KeyHolders *const holders = new KeyHolders;
        return *holders;
    }
    void Lock() { EnterCriticalSection(&lock_); }
    void Unlock() { LeaveCriticalSection(&lock_); }
    // Under the lock.
    void Add(DiagGuard *g) { guards_.push_back(g); }
    void Remove(DiagGuard *g)
    {
        auto it = std::find(guards_.begin(), guards_.end(), g);
        if (it != guards_.end()) {
            *it = guards_.back();
            guards_.pop_back();
        }
    }
    std::vector<DiagGuard *> Take()
    {
        std::vector<DiagGuard *> taken;
        taken.swap(guards_);
        return taken;
    }

private:
    KeyHolders() { InitializeCriticalSection(&lock_); }
    CRITICAL_SECTION lock_;
    std::vector<DiagGuard *> guards_;
};

class HoldersLocked {
public:
    HoldersLocked() { KeyHolders::Get().Lock(); }
    ~HoldersLocked() { KeyHolders::Get().Unlock(); }
    HoldersLocked(HoldersLocked const &) = delete;
    HoldersLocked &operator=(HoldersLocked const &) = delete;
};

// Reads valueName under key into *flag; a failed read leaves it. Called
// with the holders' lock held, so key cannot be deleted meanwhile.
BOOLTYPE ReadFlag(RegistryKey *key, char const *valueName, BOOLTYPE *flag)
{
    if (key != nullptr) {
        RegistryUint value(valueName, *key);
        unsigned int number = 0; // a value of fewer than 4 bytes fills only its low bytes
        if (value.Get(&number) == TRUE)
            StoreSwitch(flag, number != 0 ? TRUE : FALSE);
    }
    return LoadSwitch(flag);
}

} // namespace

DiagGuard::DiagGuard()
    : diagAst(FALSE), diagAstv(FALSE), diagPath(FALSE), diagWhere(FALSE), diagErr(FALSE), diagMsg(FALSE),
      diagEnable(FALSE), monitorDiagFlags(FALSE), diagRegKeyPtr(nullptr), classDiagMasks(), diagFile(),
      diagContext(&diagFile, FALSE, nullptr)
{
    InitializeCriticalSection(&diagLock);
}

DiagGuard::DiagGuard(char const *fileName)
    : diagFile(), diagContext(&diagFile, TRUE, fileName)
{
    std::fill(classDiagMasks, classDiagMasks + MaskTableSize, 0);
    std::fill(classDiagMasks + 1, classDiagMasks + LastDefaultIndex + 1, static_cast<DWORD>(DEFAULT_MASK));
    diagAst = initDiagAst;
    diagAstv = initDiagAstv;
    diagPath = initDiagPath;
    diagWhere = initDiagWhere;
    diagMsg = initDiagMsg;
    diagErr = initDiagErr;
    diagEnable = initDiagEnable;
    monitorDiagFlags = initMonitorDiagFlags;
    {
        // The copy of the key and the entry in the holders' list at once, so
        // that ReleaseInitDiagRegKey cannot pass between them.
        HoldersLocked locked;
        diagRegKeyPtr = initDiagRegKeyPtr;
        if (diagRegKeyPtr != nullptr)
            KeyHolders::Get().Add(this);
    }
    InitializeCriticalSection(&diagLock);
}

DiagGuard::~DiagGuard()
{
    {
        HoldersLocked locked;
        if (diagRegKeyPtr != nullptr)
            KeyHolders::Get().Remove(this);
        diagRegKeyPtr = nullptr;
    }
    DeleteCriticalSection(&diagLock);
    // diagContext, then diagFile, go with the members.
}

BOOLTYPE DiagGuard::ReadSwitch(char const *valueName, BOOLTYPE *field)
{
    if (LoadSwitch(&monitorDiagFlags) == TRUE)
        return GetDiagFlagValue(valueName, field);
    return LoadSwitch(field);
}

BOOLTYPE DiagGuard::SwitchesAllow(MaskBits kind)
{
    if (GetDiagEnable() != TRUE)
        return FALSE;
    BOOLTYPE kindSwitch = kind == ERROR_BIT ? GetDiagErr() : GetDiagMsg();
    return kindSwitch == TRUE ? TRUE : FALSE;
}

BOOLTYPE DiagGuard::GetDiagFlagValue(char const *valueName, BOOLTYPE *flag)
{
    HoldersLocked locked;
    return ReadFlag(diagRegKeyPtr, valueName, flag);
}

BOOLTYPE DiagGuard::GetInitDiagFlagValue(char const *valueName, BOOLTYPE *flag)
{
    HoldersLocked locked;
    return ReadFlag(initDiagRegKeyPtr, valueName, flag);
}

void DiagGuard::InitDiagFlagValues()
{
    GetInitDiagFlagValue("AllowDiagnostics", &initDiagEnable);
    GetInitDiagFlagValue("EnableDebugBuildAssertions", &initDiagAst);
    GetInitDiagFlagValue("EnableDebugBuildAssertions", &initDiagAstv);
    GetInitDiagFlagValue("EnableErrorMessages", &initDiagErr);
    GetInitDiagFlagValue("EnableOtherMessages", &initDiagMsg);
    GetInitDiagFlagValue("MonitorTheseSettingsDuringRun", &initMonitorDiagFlags);
}

void DiagGuard::ReleaseInitDiagRegKey()
{
    RegistryKey *key;
    {
        HoldersLocked locked;
        for (DiagGuard *g : KeyHolders::Get().Take())
            g->diagRegKeyPtr = nullptr;
        key = initDiagRegKeyPtr;
        initDiagRegKeyPtr = nullptr;
    }
    delete key; // no guard and no read can reach it any more
}

void DiagGuard::FailedLine(char const *const file, int line, char const *const compileTime,
                           char const *const expression)
{
    LockedStream locked(*this);
    locked.Context() << "\n\n**Tessavi Assertion Failed**\n"
                     << "     File: " << file << " ,  Line: " << line << "\n       Time/date of compile: "
                     << compileTime << "\n\n Assertion:\n  " << expression << "\n\n";
}

void DiagGuard::ExitAfterAssert() { _Exit(1); } // as _exit: at once, nothing else runs

void DiagGuard::FlushDiagFile() { diagContext.Diag_Flush(); }

void DiagGuard::TestPath() {}

void DiagGuard::DiagMemory(char const *) {}
