// The diagnostic guard of a thread or application object (see ThrdGuard.h).
#include "ThrdGuard.h"

#include <mbstring.h>

#include <assert.h>

namespace tsutil {

namespace {

constexpr size_t kNameBlock = 256;

// The handle of a guard's file, which the guard keeps to itself: a member
// pointer formed in a derived class may be applied to any guard.
struct GuardFile : DiagGuard {
    static unsigned int HandleOf(DiagGuard &guard) { return (guard.*&GuardFile::diagFile).m_hFile; }
};

} // namespace

char *NewDiagFileName(char const *name)
{
    char *block = static_cast<char *>(GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, kNameBlock));
    if (block && name)
        _mbsnbcpy(reinterpret_cast<unsigned char *>(block), reinterpret_cast<unsigned char const *>(name),
                  kNameBlock - 1);
    return block;
}

void FreeDiagFileName(char *&block)
{
    if (block && GlobalFree(block) != nullptr)
        assert(!"GlobalFree refused the block of a diagnostic file's name");
    block = nullptr;
}

void PutGuardInForce(ThreadGuardTexts const &texts, DiagGuard *given, char const *fileName, GuardMaker make,
                     DiagGuard *&current)
{
    DiagGuard *guard = given ? given : make(fileName);
    DiagGuard::SetThreadDiagGuardPtr(guard);
    current = guard;
    // The first text opens the file, so the handle after it is the open one.
    DIAG_VERBOSE(texts.classIndex,
                 texts.handleMessage << GuardFile::HandleOf(*DiagGuard::GetThreadDiagGuardPtr()) << "\n" << "\n");
    DIAG_MSG(texts.classIndex, texts.initializingMessage);
}

void DropGuard(ThreadGuardTexts const &texts, DiagGuard *given, DiagGuard *&current)
{
    DIAG_MSG(texts.classIndex, texts.exitingMessage);
    DiagGuard *guard = DiagGuard::GetThreadDiagGuardPtr();
    if (guard)
        guard->FlushDiagFile();
    if (!given && guard) {
        delete guard;
        DiagGuard::SetThreadDiagGuardPtr(nullptr);
        current = nullptr;
    }
}

} // namespace tsutil
