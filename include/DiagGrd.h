// DiagGuard: a thread's diagnostic identity. It holds the switches that
// decide what is emitted, a table of masks per emitting class, the
// diagnostic file with its output stream, and the lock that keeps one
// message together. Constructing one enters nothing: a thread's current
// guard is the one in threadDiagGuardPtr, and several threads may point to
// the same guard, sharing its switches, masks, file and lock.
//
// The switches come from the registry value of the same name under the
// installation's "Diagnostics" key (see TessaviInitInfo):
//   diagEnable   "AllowDiagnostics"             FALSE unless the registry says so
//   diagAst      "EnableDebugBuildAssertions"   for programs; no gate reads it
//   diagAstv     "EnableDebugBuildAssertions"   for programs; no gate reads it
//   diagErr      "EnableErrorMessages"          errors and assertions
//   diagMsg      "EnableOtherMessages"          messages and verbose messages
// They are read once into the init statics (InitDiagFlagValues), copied into
// each guard at its construction and, while monitoring is on (the value
// "MonitorTheseSettingsDuringRun", default on), read again at each use, so
// that an operator switches diagnostics of a running program from outside.
// A value that is missing keeps the switch as it was; a value that is not 0
// reads as TRUE.
//
// The gate. Every emission goes through four steps, written out at the
// place of use by the macros at the end of this header:
//   1. the kind's bit in the guard's mask for the emitting class (no
//      registry access; a thread without a guard stops here as well);
//   2. GetDiagEnable();
//   3. the kind's switch: GetDiagMsg() for messages (bit 0x20) and verbose
//      messages (0x80), GetDiagErr() for errors and assertions (0x10);
//   4. emission: the whole chain of operator<< under diagLock, or for a
//      failed assertion FailedLine and then ExitAfterAssert.
// A gate that stops has no effect at all.
#pragma once

#include "TSDefs.h"
#include "DDUMPC.h"

#include <afx.h>

class RegistryKey;
class DiagGuard;

// The thread's current guard: the library's only thread-local variable,
// null when a thread starts. The library's thread and application objects
// set and clear it; other code only reads it. It is read inline by the
// gates, so that a shut gate costs no call: on ELF systems through the
// initial-exec model, which a library loaded at program start may use.
#if defined(__GNUC__) && defined(__ELF__)
#define TSUTIL_THREAD_SLOT __thread __attribute__((tls_model("initial-exec")))
#elif defined(__GNUC__)
#define TSUTIL_THREAD_SLOT __thread
#else
#define TSUTIL_THREAD_SLOT thread_local
#endif
extern TSUTIL_API TSUTIL_THREAD_SLOT DiagGuard *threadDiagGuardPtr;

class TSUTIL_API DiagGuard : public CObject {
public:
    // A class's index in a guard's table of masks. Only the values are
    // fixed: each emitting class names its own in a CLASS_INDEX constant.
    enum ClassNameIndex {
        DiagGuardIndex = 1,
        UnassignedIndex = 2, // belongs to no exported class
        GenericFileIndex = 3,
        GenericTextIndex = 4,
        ServiceThreadIndex = 5,
        WinThreadIndex = 6,
        WinAppIndex = 7,
        FirstProgramIndex = 8, // 8 to 42: entries that no class of this library uses
        LastDefaultIndex = 42, // the last entry the naming constructor sets
        MaskTableSize = 100,
    };
    static const ClassNameIndex CLASS_INDEX = DiagGuardIndex;

    // The bits of a class mask. DEFAULT_MASK has errors and messages on and
    // verbose messages off; its bits 0x01, 0x02 and 0x40 are read by no
    // code of the library.
    enum MaskBits : unsigned {
        ERROR_BIT = 0x10,
        MESSAGE_BIT = 0x20,
        VERBOSE_BIT = 0x80,
        DEFAULT_MASK = 0x73,
    };

    // The values that guards copy at construction. Before the registry was
    // read: diagnostics off, errors and messages on, monitoring on, no key.
    static BOOLTYPE initDiagEnable;
    static BOOLTYPE initDiagAst;
    static BOOLTYPE initDiagAstv;
    static BOOLTYPE initDiagErr;
    static BOOLTYPE initDiagMsg;
    static BOOLTYPE initMonitorDiagFlags;
    static BOOLTYPE initDiagPath;
    static BOOLTYPE initDiagWhere;
    // The installation's "Diagnostics" key, set and deleted by
    // TessaviInitInfo. Guards keep a copy of it; see ReleaseInitDiagRegKey.
    static RegistryKey *initDiagRegKeyPtr;

    // Builds the file and its stream with no name and no file to open; the
    // base of DiagGuardService() and not a working guard. Its masks are all
    // clear and its switches FALSE, so that a gate that reaches it by
    // mistake shuts at step 1, and its lock is made, so that it can be
    // destroyed like any other.
    DiagGuard();
    // The working guard. fileName names the diagnostic file, with a path or
    // without; nothing is opened before the first emission. The masks of
    // the classes 1 to 42 become DEFAULT_MASK (the others 0), and the
    // switches and the key are copied from the statics as they stand now.
    // A null name gives a guard whose gates work but whose output goes
    // nowhere: there is no file to open, and the stream falls silent.
    explicit DiagGuard(char const *fileName);
    // Deletes the lock, then closes the file if it was opened. No thread
    // may be at a gate of this guard, nor reach one afterwards.
    virtual ~DiagGuard();

    DiagGuard(DiagGuard const &) = delete;
    DiagGuard &operator=(DiagGuard const &) = delete;

    // The calling thread's guard; null when it has none.
    static DiagGuard *GetThreadDiagGuardPtr() { return threadDiagGuardPtr; }
    // Makes guard (null for none) the calling thread's guard, overwriting
    // what stood there: guards are neither chained nor restored. For the
    // thread and application objects, and for programs with threads of
    // their own. The guard stays its creator's.
    static void SetThreadDiagGuardPtr(DiagGuard *guard) { threadDiagGuardPtr = guard; }

    // The switches. While monitoring is on each call first reads its value
    // from the registry into this guard's field (not into the static).
    BOOLTYPE GetDiagEnable() { return ReadSwitch("AllowDiagnostics", &diagEnable); }
    BOOLTYPE GetDiagAst() { return ReadSwitch("EnableDebugBuildAssertions", &diagAst); }
    BOOLTYPE GetDiagAstv() { return ReadSwitch("EnableDebugBuildAssertions", &diagAstv); }
    BOOLTYPE GetDiagErr() { return ReadSwitch("EnableErrorMessages", &diagErr); }
    BOOLTYPE GetDiagMsg() { return ReadSwitch("EnableOtherMessages", &diagMsg); }

    // Reads valueName under this guard's key into *flag: 1 when the number
    // read is not 0, 0 when it is 0; a value that is missing or unreadable,
    // or no key at all, leaves *flag as it was. Gives *flag.
    BOOLTYPE GetDiagFlagValue(char const *valueName, BOOLTYPE *flag);
    // The same under initDiagRegKeyPtr.
    static BOOLTYPE GetInitDiagFlagValue(char const *valueName, BOOLTYPE *flag);
    // Reads the six values into the init statics, in the order of the
    // table above, with "MonitorTheseSettingsDuringRun" last.
    static void InitDiagFlagValues();
    // Deletes the key in initDiagRegKeyPtr and clears it, after every live
    // guard that copied it has let go of it (their copies become null: they
    // keep the switches they last read and read the registry no more), and
    // no thread is reading through it. TessaviInitInfo calls it when it
    // gives up its keys.
    static void ReleaseInitDiagRegKey();

    // The assertion report: takes diagLock and writes, whatever the
    // switches say,
    //   "\n\n**Tessavi Assertion Failed**\n     File: <file> ,  Line: <line>"
    //   "\n       Time/date of compile: <compileTime>\n\n Assertion:\n  "
    //   "<expression>\n\n"
    // in ten pieces. Ends nothing, flushes nothing.
    void FailedLine(char const *const file, int line, char const *const compileTime, char const *const expression);
    // Ends the process at once with exit code 1 (_exit: nothing else runs).
    virtual void ExitAfterAssert();
    // Hands the file's data to the disk; without diagLock.
    void FlushDiagFile();
    // Do nothing; kept for the programs that call them.
    void TestPath();
    void DiagMemory(char const *);

    // Gate steps 1 to 3 for the calling thread: its guard when a text of
    // this kind (MESSAGE_BIT, VERBOSE_BIT or ERROR_BIT) and class is to be
    // emitted now, else null. The bit is tested first, inline.
    static DiagGuard *Gate(ClassNameIndex classIndex, MaskBits kind)
    {
        DiagGuard *g = threadDiagGuardPtr;
        if (g == nullptr || (g->classDiagMasks[classIndex] & kind) == 0)
            return nullptr;
        return g->SwitchesAllow(kind) ? g : nullptr;
    }

    // diagLock held for one whole message, from construction to the end of
    // the statement or scope: LockedStream(*g).Context() << a << b;
    class LockedStream {
    public:
        explicit LockedStream(DiagGuard &g) : guard_(g) { EnterCriticalSection(&guard_.diagLock); }
        ~LockedStream() { LeaveCriticalSection(&guard_.diagLock); }
        LockedStream(LockedStream const &) = delete;
        LockedStream &operator=(LockedStream const &) = delete;
        DiagDumpContext &Context() { return guard_.diagContext; }

    private:
        DiagGuard &guard_;
    };

protected:
    // Steps 2 and 3 of the gate.
    BOOLTYPE SwitchesAllow(MaskBits kind);
    // An accessor's work: the monitored read, then the field.
    BOOLTYPE ReadSwitch(char const *valueName, BOOLTYPE *field);

    BOOLTYPE diagAst;
    BOOLTYPE diagAstv;
    BOOLTYPE diagPath;  // copy of initDiagPath; read by nothing in the library
    BOOLTYPE diagWhere; // copy of initDiagWhere; read by nothing in the library
    BOOLTYPE diagErr;
    BOOLTYPE diagMsg;
    BOOLTYPE diagEnable;
    BOOLTYPE monitorDiagFlags;
    RegistryKey *diagRegKeyPtr; // not owned; null: no registry reads
    DWORD classDiagMasks[MaskTableSize];
    CFile diagFile;
    DiagDumpContext diagContext;
    CRITICAL_SECTION diagLock;
};

// The gates, each written out where it is used. cls is the emitting
// class's CLASS_INDEX; chain is the right side of one operator<< chain on
// the guard's DiagDumpContext, for example
//   DIAG_MSG(CLASS_INDEX, "WinApp initializing -- InitInstance().\n");
//   DIAG_ERR(CLASS_INDEX, "Open failed: " << path << _TCR);
// DIAG_ASSERT tests cond and passes the gate only when it failed: with the
// gate open it writes the report (source file, line, the file's time
// stamp, the condition's text) and ends the process through the guard's
// ExitAfterAssert; with the gate shut the code goes on. Where the place
// itself is the failure, DIAG_ASSERT(cls, FALSE) reports "FALSE".
#define TSUTIL_DIAG_EMIT_(cls, kind, chain)                                             \
    do {                                                                                \
        if (DiagGuard *const tsutilDiagGuard_ = DiagGuard::Gate((cls), (kind))) {       \
            DiagGuard::LockedStream(*tsutilDiagGuard_).Context() << chain;              \
        }                                                                               \
    } while (0)
#define DIAG_MSG(cls, chain) TSUTIL_DIAG_EMIT_(cls, DiagGuard::MESSAGE_BIT, chain)
#define DIAG_VERBOSE(cls, chain) TSUTIL_DIAG_EMIT_(cls, DiagGuard::VERBOSE_BIT, chain)
#define DIAG_ERR(cls, chain) TSUTIL_DIAG_EMIT_(cls, DiagGuard::ERROR_BIT, chain)
#define DIAG_ASSERT(cls, cond)                                                          \
    do {                                                                                \
        if (!(cond)) {                                                                  \
            if (DiagGuard *const tsutilDiagGuard_ = DiagGuard::Gate((cls), DiagGuard::ERROR_BIT)) { \
                tsutilDiagGuard_->FailedLine(__FILE__, __LINE__, __TIMESTAMP__, #cond); \
                tsutilDiagGuard_->ExitAfterAssert();                                    \
            }                                                                           \
        }                                                                               \
    } while (0)
