// Uses the library's frame and the platform's kernel objects through the
// umbrella header, as a program built on TSUtil does.
#include <TSUtil.h>

#include <cstdio>

int main()
{
    HANDLE e = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SetEvent(e);
    bool ok = WaitForSingleObject(e, 0) == WAIT_OBJECT_0;
    CloseHandle(e);
    BOOLTYPE b = ok ? TRUE : FALSE;
    std::printf("consumer: %s\n", b == TRUE ? "ok" : "failed");
    return b == TRUE ? 0 : 1;
}
