// What ServiceThread, WinThread and WinApp share: the block that holds the
// name of the diagnostic file for a guard of the object's own, and the
// guard that each puts in force for its thread in InitInstance and drops
// again in ExitInstance. Only the class index, the texts and the kind of
// guard made differ between the three.
#pragma once

#include "DiagGrd.h"

namespace tsutil {

// A zero-filled block of 256 bytes holding name cut at 255 bytes
// (_mbsnbcpy), so that it always ends with a NUL; null when no block can
// be had.
char *NewDiagFileName(char const *name);
// Gives back a block of NewDiagFileName (null is nothing) and clears it.
void FreeDiagFileName(char *&block);

// The class's own texts and index for the gates of InitInstance and
// ExitInstance.
struct ThreadGuardTexts {
    DiagGuard::ClassNameIndex classIndex;
    char const *handleMessage;       // verbose, before the file's handle
    char const *initializingMessage; // last text of InitInstance
    char const *exitingMessage;      // first text of ExitInstance
};

// Makes the guard of an object's own for its file name; null when the
// allocation failed.
typedef DiagGuard *(*GuardMaker)(char const *fileName);

// InitInstance after the base's: given, or else a guard made by make with
// fileName, becomes the calling thread's guard and current; then the
// handle message and the initializing message go through the gates.
//
// A guard that cannot be made leaves the thread with none (both pointers
// null): every gate of the thread is then shut, since a gate stops at a
// thread without a guard, and ExitInstance has nothing to flush or delete.
void PutGuardInForce(ThreadGuardTexts const &texts, DiagGuard *given, char const *fileName, GuardMaker make,
                     DiagGuard *&current);

// ExitInstance before the base's: the exiting message; the thread's guard
// flushed; and, when no guard was given, the thread's guard deleted and
// both pointers cleared. A given guard stays alive and in force.
void DropGuard(ThreadGuardTexts const &texts, DiagGuard *given, DiagGuard *&current);

} // namespace tsutil
