// GenericService: the object, its control tool, and the run time with its
// two handlers.
#include "GenSvc.h"

#include <mbctype.h>
#include <stdio.h>
#include <string.h>

#include <new>

static_assert(sizeof(SERVICE_STATUS) == 7 * 4, "the status record is seven 32-bit words");
static_assert(sizeof(DWORD) == 4, "times and states are 32-bit words");

GenericService *GenericService::primaryServicePtr = nullptr;
CWinThread *GenericService::serviceDiagExecThreadPtr = nullptr;
unsigned long GenericService::serviceProcessPriorityClass = 0;
int GenericService::serviceThreadPriority = 0;

// Not every set of the platform's headers names this NetBIOS code.
#ifndef ERROR_DUP_NAME
#define ERROR_DUP_NAME 52L
#endif

namespace {

constexpr DWORD kNameBlock = 256;
constexpr DWORD kStopHintFloor = 15000;
constexpr DWORD kRemovePoll = 1000;

// What a name reads as when its block cannot be had: never written, never
// freed.
char gNoName[1] = {0};

// A zero-filled block of kNameBlock bytes holding name cut to at most 255
// characters and 255 bytes, never in the middle of a double-byte
// character; gNoName when the block cannot be allocated.
char *CopyName(char const *name)
{
    char *block = static_cast<char *>(GlobalAlloc(GPTR, kNameBlock));
    if (!block)
        return gNoName;
    if (!name)
        return block;
    DWORD bytes = 0;
    for (DWORD chars = 0; chars < kNameBlock - 1 && name[bytes]; ++chars) {
        DWORD width = (_ismbblead(static_cast<unsigned char>(name[bytes])) && name[bytes + 1]) ? 2 : 1;
        if (bytes + width > kNameBlock - 1)
            break;
        bytes += width;
    }
    memcpy(block, name, bytes);
    return block;
}

void FreeName(char *&name)
{
    if (name && name != gNoName)
        GlobalFree(name);
    name = nullptr;
}

void PrintInstallFailure(DWORD code)
{
    char const *text = nullptr;
    switch (code) {
    case ERROR_ACCESS_DENIED: text = "Access Denied\n"; break;
    case ERROR_INVALID_HANDLE: text = "Invalid Service Handle.\n"; break;
    case ERROR_DUP_NAME: text = "Duplicate Service Name found.\n"; break;
    case ERROR_INVALID_PARAMETER: text = "Invalid Parameter supplied to CreateService()\n"; break;
    case ERROR_INVALID_NAME: text = "Invalid Service Name\n"; break;
    case ERROR_INVALID_SERVICE_ACCOUNT: text = "Invalid Service Account.\n"; break;
    case ERROR_CIRCULAR_DEPENDENCY: text = "Circular Dependency found.\n"; break;
    case ERROR_SERVICE_EXISTS: text = "Service is already installed.\n"; break;
    default: return;
    }
    printf("%s", text);
}

template <class T> void DeleteAndClear(T *&object)
{
    if (object) {
        delete object;
        object = nullptr;
    }
}

} // namespace

GenericService::GenericService()
    : startInterlockPtr(nullptr), stopInterlockPtr(nullptr), pauseInterlockPtr(nullptr),
      continueInterlockPtr(nullptr), interlockGroupPtr(nullptr), statusHandle(nullptr), shortName(nullptr),
      longName(nullptr), serviceHandle(nullptr)
{
}

GenericService::GenericService(char const *shortName, char const *longName, BOOLTYPE runAsService,
                               unsigned long cycleWaitTime)
{
    primaryServicePtr = this;
    this->cycleWaitTime = static_cast<DWORD>(cycleWaitTime);
    this->shortName = CopyName(shortName);
    this->longName = CopyName(longName);
    this->runAsService = runAsService;
    startInterlockPtr = stopInterlockPtr = pauseInterlockPtr = continueInterlockPtr = nullptr;
    interlockGroupPtr = nullptr;
    statusHandle = nullptr;
    serviceHandle = nullptr;
    paused = FALSE;
    stopAllowed = pauseAllowed = continueAllowed = TRUE;
    startTimeout = 20000;
    continueTimeout = 20000;
    stopTimeout = 15000;
    pauseTimeout = 15000;
    threadDeletionDelay = 2000;
    serviceStatus.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    serviceStatus.dwCurrentState = SERVICE_STOPPED;
    serviceStatus.dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE | SERVICE_ACCEPT_SHUTDOWN;
    serviceStatus.dwWin32ExitCode = 0;
    serviceStatus.dwServiceSpecificExitCode = 0;
    serviceStatus.dwCheckPoint = 1;
    serviceStatus.dwWaitHint = 0;
}

GenericService::~GenericService()
{
    statusHandle = nullptr;
    FreeName(shortName);
    FreeName(longName);
}

BOOLTYPE GenericService::InitPrimaryService() { return FALSE; }
BOOLTYPE GenericService::CyclePrimaryService() { return FALSE; }

// ---------------------------------------------------------------- control tool

BOOLTYPE GenericService::Install()
{
    char path[kNameBlock] = {0};
    DWORD length = GetModuleFileNameA(nullptr, path, kNameBlock - 1);
    // A result that fills the buffer is a cut path: registering it would
    // name another program, or none.
    if (length == 0 || length >= kNameBlock - 1)
        return FALSE;
    SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (!manager)
        return FALSE;
    SC_HANDLE service = CreateServiceA(manager, shortName, longName, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                       SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, path, nullptr, nullptr, nullptr,
                                       nullptr, nullptr);
    if (!service) {
        PrintInstallFailure(GetLastError());
        CloseServiceHandle(manager);
        return FALSE;
    }
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return TRUE;
}

BOOLTYPE GenericService::Remove()
{
    SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (!manager)
        return FALSE;
    SC_HANDLE service = OpenServiceA(manager, shortName, SERVICE_ALL_ACCESS);
    if (!service) {
        CloseServiceHandle(manager);
        return FALSE;
    }
    // A service that is stopping already refuses the control, and is waited
    // for all the same.
    bool stopping = ControlService(service, SERVICE_CONTROL_STOP, &serviceStatus) ||
                    (QueryServiceStatus(service, &serviceStatus) && serviceStatus.dwCurrentState == SERVICE_STOP_PENDING);
    if (stopping) {
        // A service that reports no progress for longer than it asked for
        // (and than this object would ask for) is taken to hang.
        DWORD checkPoint = serviceStatus.dwCheckPoint;
        DWORD waitHint = serviceStatus.dwWaitHint;
        DWORD quiet = 0;
        Sleep(kRemovePoll);
        while (QueryServiceStatus(service, &serviceStatus) && serviceStatus.dwCurrentState == SERVICE_STOP_PENDING) {
            if (serviceStatus.dwCheckPoint != checkPoint || serviceStatus.dwWaitHint != waitHint) {
                checkPoint = serviceStatus.dwCheckPoint;
                waitHint = serviceStatus.dwWaitHint;
                quiet = 0;
            }
            quiet += kRemovePoll;
            DWORD limit = (waitHint > stopTimeout ? waitHint : stopTimeout) + threadDeletionDelay;
            if (quiet > limit)
                break;
            Sleep(kRemovePoll);
        }
        if (serviceStatus.dwCurrentState != SERVICE_STOPPED) {
            CloseServiceHandle(service);
            CloseServiceHandle(manager);
            return FALSE;
        }
    }
    BOOL deleted = DeleteService(service);
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return deleted ? TRUE : FALSE;
}

void *GenericService::getSvcHandle()
{
    if (!serviceHandle) {
        SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        if (manager) {
            serviceHandle = OpenServiceA(manager, shortName, SERVICE_ALL_ACCESS);
            CloseServiceHandle(manager);
        }
    }
    return serviceHandle;
}

BOOLTYPE GenericService::start_svc(unsigned long argc, char const **argv)
{
    SC_HANDLE service = static_cast<SC_HANDLE>(getSvcHandle());
    if (!service) {
        printf("Unable to get service handle for %s\n", longName);
        return FALSE;
    }
    if (!StartServiceA(service, static_cast<DWORD>(argc), argv)) {
        printf("Unable to start %s\n", shortName);
        return FALSE;
    }
    printf("%s started...\n", shortName);
    return TRUE;
}

BOOLTYPE GenericService::stop_svc()
{
    SC_HANDLE service = static_cast<SC_HANDLE>(getSvcHandle());
    if (!service) {
        printf("Unable to get service handle for %s\n", longName);
        return FALSE;
    }
    SERVICE_STATUS status;
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        printf("Unable to stop %s\n", shortName);
        return FALSE;
    }
    printf("%s stopped...\n", shortName);
    return TRUE;
}

BOOLTYPE GenericService::check_status(unsigned long &state)
{
    SC_HANDLE service = static_cast<SC_HANDLE>(getSvcHandle());
    if (!service) {
        printf("Unable to get service handle for %s\n", longName);
        return FALSE;
    }
    SERVICE_STATUS status;
    if (!QueryServiceStatus(service, &status))
        return FALSE;
    state = status.dwCurrentState;
    return TRUE;
}

// ---------------------------------------------------------------- run time

BOOLTYPE GenericService::InformSCMgr(unsigned long state, unsigned long waitHint, unsigned long checkPoint)
{
    if (runAsService != TRUE)
        return TRUE;
    serviceStatus.dwWaitHint = static_cast<DWORD>(waitHint);
    serviceStatus.dwCheckPoint = static_cast<DWORD>(checkPoint);
    serviceStatus.dwCurrentState = static_cast<DWORD>(state);
    if (!statusHandle)
        return TRUE;
    if (state == SERVICE_START_PENDING || state == SERVICE_RUNNING)
        serviceStatus.dwWin32ExitCode = 0;
    return SetServiceStatus(statusHandle, &serviceStatus) ? TRUE : FALSE;
}

void GenericService::Conclude() { InformSCMgr(SERVICE_STOPPED, 0, 0); }

void GenericService::StopService()
{
    if (stopInterlockPtr)
        stopInterlockPtr->MakeRequest();
}

void GenericService::PauseService()
{
    if (pauseInterlockPtr)
        pauseInterlockPtr->MakeRequest();
}

void GenericService::ContinueService()
{
    if (continueInterlockPtr)
        continueInterlockPtr->MakeRequest();
}

BOOLTYPE GenericService::Begin()
{
    if (runAsService == TRUE) {
        SERVICE_TABLE_ENTRYA table[2] = {{shortName, PrimaryServiceMain}, {nullptr, nullptr}};
        return StartServiceCtrlDispatcherA(table) ? TRUE : FALSE;
    }
    PrimaryServiceMain(0, nullptr);
    return TRUE;
}

void WINAPI GenericService::PrimaryServiceMain(DWORD argc, LPSTR *argv)
{
    CommonServiceMain(argc, argv, primaryServicePtr);
}

void GenericService::CommonServiceMain(unsigned long, char **, GenericService *service)
{
    if (!service)
        return;
    if (service->runAsService == TRUE)
        service->statusHandle = RegisterServiceCtrlHandlerA(service->shortName, PrimaryServiceControlHandler);
    SetConsoleCtrlHandler(ConsoleControlHandler, 1);
    service->InformSCMgr(SERVICE_START_PENDING, service->startTimeout, 1);

    service->startInterlockPtr = new (std::nothrow) ParentInterlockSepThread(TRUE);
    service->stopInterlockPtr = new (std::nothrow) ParentInterlockSepThread(TRUE);
    service->pauseInterlockPtr = new (std::nothrow) ParentInterlockSepThread(TRUE);
    service->continueInterlockPtr = new (std::nothrow) ParentInterlockSepThread(TRUE);
    ParentInterlockSepThread *list[5] = {service->startInterlockPtr, service->stopInterlockPtr,
                                         service->pauseInterlockPtr, service->continueInterlockPtr, nullptr};
    service->interlockGroupPtr = new (std::nothrow) ParentMultiLockSepThread(list);

    bool complete = service->startInterlockPtr && service->stopInterlockPtr && service->pauseInterlockPtr &&
                    service->continueInterlockPtr && service->interlockGroupPtr;
    if (!complete) {
        // A service that cannot be controlled is not started: the manager
        // sees it stop with the reason, and no worker exists to wait for.
        service->serviceStatus.dwWin32ExitCode = ERROR_NOT_ENOUGH_MEMORY;
    } else if (!service->InitPrimaryService()) {
        service->Conclude();
    } else {
        ParentInterlock *answered = nullptr;
        bool running = true;
        while (running) {
            if (service->CyclePrimaryService()) {
                while (!service->interlockGroupPtr->WaitForResponse(service->cycleWaitTime, FALSE, &answered) &&
                       service->CyclePrimaryService()) {
                }
            }
            // The flags and the interlock are settled before the report: a
            // client that sends the next control as soon as it reads the
            // new state must find the service ready for it (a continue
            // that came before paused was set would be taken for a repeat,
            // confirmed and lost, and the workers would stay paused).
            if (answered == service->startInterlockPtr) {
                service->startInterlockPtr->ResetInterlock();
                service->InformSCMgr(SERVICE_RUNNING, 0, 0);
            } else if (answered == service->stopInterlockPtr) {
                running = false;
            } else if (answered == service->pauseInterlockPtr) {
                service->continueAllowed = TRUE;
                service->pauseInterlockPtr->ResetInterlock();
                service->paused = TRUE;
                service->InformSCMgr(SERVICE_PAUSED, 0, 0);
            } else if (answered == service->continueInterlockPtr) {
                service->pauseAllowed = TRUE;
                service->continueInterlockPtr->ResetInterlock();
                service->paused = FALSE;
                service->InformSCMgr(SERVICE_RUNNING, 0, 0);
            }
        }
    }

    // The workers finish with their child interlocks in this time.
    if (complete)
        Sleep(service->threadDeletionDelay);
    DeleteAndClear(service->startInterlockPtr);
    DeleteAndClear(service->stopInterlockPtr);
    DeleteAndClear(service->pauseInterlockPtr);
    DeleteAndClear(service->continueInterlockPtr);
    DeleteAndClear(service->interlockGroupPtr);
    service->Conclude();
}

void WINAPI GenericService::PrimaryServiceControlHandler(DWORD control)
{
    CommonServiceControlHandler(control, primaryServicePtr);
}

void GenericService::CommonServiceControlHandler(unsigned long control, GenericService *service)
{
    if (!service)
        return;
    switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        if (!service->stopInterlockPtr) {
            service->InformSCMgr(SERVICE_STOPPED, 0, 0);
        } else if (service->stopAllowed) {
            DWORD hint = service->stopTimeout > kStopHintFloor ? service->stopTimeout : kStopHintFloor;
            service->InformSCMgr(SERVICE_STOP_PENDING, hint, 1);
            service->stopInterlockPtr->MakeRequest();
            service->stopAllowed = FALSE;
        } else {
            service->InformSCMgr(SERVICE_STOP_PENDING, 0, 1);
        }
        break;
    case SERVICE_CONTROL_PAUSE:
        if (service->paused) {
            service->InformSCMgr(SERVICE_PAUSED, 0, 0);
            service->continueAllowed = TRUE;
            if (service->pauseInterlockPtr)
                service->pauseInterlockPtr->ResetInterlock();
        } else if (!service->pauseInterlockPtr) {
            service->InformSCMgr(SERVICE_STOPPED, 0, 0);
        } else if (service->pauseAllowed) {
            service->InformSCMgr(SERVICE_PAUSE_PENDING, service->pauseTimeout, 1);
            service->pauseInterlockPtr->MakeRequest();
            service->pauseAllowed = FALSE;
        } else {
            service->InformSCMgr(SERVICE_PAUSE_PENDING, 0, 1);
        }
        break;
    case SERVICE_CONTROL_CONTINUE:
        if (!service->paused) {
            service->InformSCMgr(SERVICE_RUNNING, 0, 0);
            service->pauseAllowed = TRUE;
            if (service->continueInterlockPtr)
                service->continueInterlockPtr->ResetInterlock();
        } else if (!service->continueInterlockPtr) {
            service->InformSCMgr(SERVICE_STOPPED, 0, 0);
        } else if (service->continueAllowed) {
            service->InformSCMgr(SERVICE_CONTINUE_PENDING, service->continueTimeout, 1);
            service->continueInterlockPtr->MakeRequest();
            service->continueAllowed = FALSE;
        } else {
            service->InformSCMgr(SERVICE_CONTINUE_PENDING, 0, 1);
        }
        break;
    default: // interrogate, and codes this service does not know
        service->InformSCMgr(service->serviceStatus.dwCurrentState, 0, 0);
        break;
    }
}

BOOL WINAPI GenericService::ConsoleControlHandler(DWORD eventType)
{
    GenericService *service = primaryServicePtr;
    if (!service)
        return 0;
    if (service->runAsService == 0) {
        switch (eventType) {
        case CTRL_C_EVENT:
        case CTRL_BREAK_EVENT:
        case CTRL_CLOSE_EVENT:
        case CTRL_LOGOFF_EVENT:
        case CTRL_SHUTDOWN_EVENT:
            service->StopService();
            return 1;
        default:
            return 0;
        }
    }
    if (eventType == CTRL_SHUTDOWN_EVENT)
        service->StopService();
    return 0;
}
