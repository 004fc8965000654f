// The framework's threads get their message queue at their start.
#pragma once

#include <windows.h>

// Makes the calling thread's message queue, so that PostThreadMessage
// reaches the thread from then on (a queue comes with a thread's first
// message call).
inline void AfxMakeMessageQueue()
{
    MSG msg;
    ::PeekMessage(&msg, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
}
