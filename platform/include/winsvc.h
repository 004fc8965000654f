/* Advapi32 service manager subset: the client calls that install, start,
 * control, query and delete services, and the calls a service process makes
 * to run under the manager. On POSIX the manager is the tsscm daemon of the
 * machine root ($TSUTIL_ROOT/run/tsscm.sock), started by the first
 * OpenSCManagerA that finds none. Results and GetLastError codes are those
 * Windows documents; where this layer differs, the declaration says so. */
#ifndef TSPLATFORM_WINSVC_H
#define TSPLATFORM_WINSVC_H

#include "windef.h"

#define SERVICES_ACTIVE_DATABASEA   "ServicesActive"
#define SERVICES_FAILED_DATABASEA   "ServicesFailed"
#define SERVICES_ACTIVE_DATABASE    SERVICES_ACTIVE_DATABASEA
#define SERVICE_NO_CHANGE           0xFFFFFFFF

#ifndef RPC_S_SERVER_UNAVAILABLE
#define RPC_S_SERVER_UNAVAILABLE    1722L
#endif

/* Service types. Only Win32 services (own or shared process) can be created
 * here; drivers are refused with ERROR_INVALID_PARAMETER. */
#define SERVICE_KERNEL_DRIVER       0x00000001
#define SERVICE_FILE_SYSTEM_DRIVER  0x00000002
#define SERVICE_ADAPTER             0x00000004
#define SERVICE_RECOGNIZER_DRIVER   0x00000008
#define SERVICE_DRIVER              (SERVICE_KERNEL_DRIVER | SERVICE_FILE_SYSTEM_DRIVER | SERVICE_RECOGNIZER_DRIVER)
#define SERVICE_WIN32_OWN_PROCESS   0x00000010
#define SERVICE_WIN32_SHARE_PROCESS 0x00000020
#define SERVICE_WIN32               (SERVICE_WIN32_OWN_PROCESS | SERVICE_WIN32_SHARE_PROCESS)
#define SERVICE_INTERACTIVE_PROCESS 0x00000100
#define SERVICE_TYPE_ALL            (SERVICE_WIN32 | SERVICE_ADAPTER | SERVICE_DRIVER | SERVICE_INTERACTIVE_PROCESS)

/* Start types. */
#define SERVICE_BOOT_START          0x00000000
#define SERVICE_SYSTEM_START        0x00000001
#define SERVICE_AUTO_START          0x00000002
#define SERVICE_DEMAND_START        0x00000003
#define SERVICE_DISABLED            0x00000004

/* Error control. */
#define SERVICE_ERROR_IGNORE        0x00000000
#define SERVICE_ERROR_NORMAL        0x00000001
#define SERVICE_ERROR_SEVERE        0x00000002
#define SERVICE_ERROR_CRITICAL      0x00000003

/* States (dwCurrentState). */
#define SERVICE_STOPPED             0x00000001
#define SERVICE_START_PENDING       0x00000002
#define SERVICE_STOP_PENDING        0x00000003
#define SERVICE_RUNNING             0x00000004
#define SERVICE_CONTINUE_PENDING    0x00000005
#define SERVICE_PAUSE_PENDING       0x00000006
#define SERVICE_PAUSED              0x00000007

/* States that EnumServicesStatusA selects. */
#define SERVICE_ACTIVE              0x00000001
#define SERVICE_INACTIVE            0x00000002
#define SERVICE_STATE_ALL           (SERVICE_ACTIVE | SERVICE_INACTIVE)

/* Controls. 128 to 255 are the service's own. */
#define SERVICE_CONTROL_STOP                  0x00000001
#define SERVICE_CONTROL_PAUSE                 0x00000002
#define SERVICE_CONTROL_CONTINUE              0x00000003
#define SERVICE_CONTROL_INTERROGATE           0x00000004
#define SERVICE_CONTROL_SHUTDOWN              0x00000005
#define SERVICE_CONTROL_PARAMCHANGE           0x00000006
#define SERVICE_CONTROL_NETBINDADD            0x00000007
#define SERVICE_CONTROL_NETBINDREMOVE         0x00000008
#define SERVICE_CONTROL_NETBINDENABLE         0x00000009
#define SERVICE_CONTROL_NETBINDDISABLE        0x0000000A
#define SERVICE_CONTROL_DEVICEEVENT           0x0000000B
#define SERVICE_CONTROL_HARDWAREPROFILECHANGE 0x0000000C
#define SERVICE_CONTROL_POWEREVENT            0x0000000D
#define SERVICE_CONTROL_SESSIONCHANGE         0x0000000E
#define SERVICE_CONTROL_PRESHUTDOWN           0x0000000F

/* Controls a service accepts (dwControlsAccepted). */
#define SERVICE_ACCEPT_STOP                   0x00000001
#define SERVICE_ACCEPT_PAUSE_CONTINUE         0x00000002
#define SERVICE_ACCEPT_SHUTDOWN               0x00000004
#define SERVICE_ACCEPT_PARAMCHANGE            0x00000008
#define SERVICE_ACCEPT_NETBINDCHANGE          0x00000010
#define SERVICE_ACCEPT_HARDWAREPROFILECHANGE  0x00000020
#define SERVICE_ACCEPT_POWEREVENT             0x00000040
#define SERVICE_ACCEPT_SESSIONCHANGE          0x00000080
#define SERVICE_ACCEPT_PRESHUTDOWN            0x00000100

/* Access to the manager. */
#define SC_MANAGER_CONNECT            0x0001
#define SC_MANAGER_CREATE_SERVICE     0x0002
#define SC_MANAGER_ENUMERATE_SERVICE  0x0004
#define SC_MANAGER_LOCK               0x0008
#define SC_MANAGER_QUERY_LOCK_STATUS  0x0010
#define SC_MANAGER_MODIFY_BOOT_CONFIG 0x0020
#define SC_MANAGER_ALL_ACCESS         0x000F003F

/* Access to a service. */
#define SERVICE_QUERY_CONFIG          0x0001
#define SERVICE_CHANGE_CONFIG         0x0002
#define SERVICE_QUERY_STATUS          0x0004
#define SERVICE_ENUMERATE_DEPENDENTS  0x0008
#define SERVICE_START                 0x0010
#define SERVICE_STOP                  0x0020
#define SERVICE_PAUSE_CONTINUE        0x0040
#define SERVICE_INTERROGATE           0x0080
#define SERVICE_USER_DEFINED_CONTROL  0x0100
#define SERVICE_ALL_ACCESS            0x000F01FF

DECLARE_HANDLE(SC_HANDLE);
typedef SC_HANDLE *LPSC_HANDLE;
DECLARE_HANDLE(SERVICE_STATUS_HANDLE);

typedef struct _SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
} SERVICE_STATUS, *LPSERVICE_STATUS;

typedef struct _ENUM_SERVICE_STATUSA {
    LPSTR lpServiceName;
    LPSTR lpDisplayName;
    SERVICE_STATUS ServiceStatus;
} ENUM_SERVICE_STATUSA, *LPENUM_SERVICE_STATUSA;

/* The service's process status (QueryServiceStatusEx, level
 * SC_STATUS_PROCESS_INFO; EnumServicesStatusExW, level SC_ENUM_PROCESS_INFO). */
typedef struct _SERVICE_STATUS_PROCESS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
    DWORD dwProcessId;
    DWORD dwServiceFlags;
} SERVICE_STATUS_PROCESS, *LPSERVICE_STATUS_PROCESS;
typedef enum _SC_STATUS_TYPE { SC_STATUS_PROCESS_INFO = 0 } SC_STATUS_TYPE;
typedef enum _SC_ENUM_TYPE { SC_ENUM_PROCESS_INFO = 0 } SC_ENUM_TYPE;
typedef struct _ENUM_SERVICE_STATUS_PROCESSW {
    LPWSTR lpServiceName;
    LPWSTR lpDisplayName;
    SERVICE_STATUS_PROCESS ServiceStatusProcess;
} ENUM_SERVICE_STATUS_PROCESSW, *LPENUM_SERVICE_STATUS_PROCESSW;

/* A service's configuration (QueryServiceConfigW). lpDependencies is a
 * double-terminated list; a group's name starts with SC_GROUP_IDENTIFIERW. */
typedef struct _QUERY_SERVICE_CONFIGW {
    DWORD dwServiceType;
    DWORD dwStartType;
    DWORD dwErrorControl;
    LPWSTR lpBinaryPathName;
    LPWSTR lpLoadOrderGroup;
    DWORD dwTagId;
    LPWSTR lpDependencies;
    LPWSTR lpServiceStartName;
    LPWSTR lpDisplayName;
} QUERY_SERVICE_CONFIGW, *LPQUERY_SERVICE_CONFIGW;
#define SC_GROUP_IDENTIFIERW        L'+'
#define SC_GROUP_IDENTIFIERA        '+'

/* Levels of ChangeServiceConfig2W and QueryServiceConfig2W that this layer
 * keeps; others fail with ERROR_INVALID_LEVEL. */
#define SERVICE_CONFIG_DESCRIPTION              1
#define SERVICE_CONFIG_DELAYED_AUTO_START_INFO  3
typedef struct _SERVICE_DESCRIPTIONW {
    LPWSTR lpDescription;
} SERVICE_DESCRIPTIONW, *LPSERVICE_DESCRIPTIONW;
typedef struct _SERVICE_DELAYED_AUTO_START_INFO {
    BOOL fDelayedAutostart;
} SERVICE_DELAYED_AUTO_START_INFO, *LPSERVICE_DELAYED_AUTO_START_INFO;

typedef void (WINAPI *LPSERVICE_MAIN_FUNCTIONA)(DWORD dwNumServicesArgs, LPSTR *lpServiceArgVectors);
typedef void (WINAPI *LPHANDLER_FUNCTION)(DWORD dwControl);
typedef DWORD (WINAPI *LPHANDLER_FUNCTION_EX)(DWORD dwControl, DWORD dwEventType, LPVOID lpEventData,
                                              LPVOID lpContext);

typedef struct _SERVICE_TABLE_ENTRYA {
    LPSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONA lpServiceProc;
} SERVICE_TABLE_ENTRYA, *LPSERVICE_TABLE_ENTRYA;

TS_EXTERN_C_BEGIN

/* Connects to the local manager. lpMachineName must be null, empty or this
 * machine's name (else RPC_S_SERVER_UNAVAILABLE, 1722); lpDatabaseName null
 * or "ServicesActive" (else ERROR_DATABASE_DOES_NOT_EXIST, or
 * ERROR_INVALID_NAME for an unknown name). POSIX: starts the machine root's
 * tsscm when none answers; ERROR_ACCESS_DENIED when the daemon belongs to
 * another user; RPC_S_SERVER_UNAVAILABLE when it can be neither reached nor
 * started. */
WINBASEAPI SC_HANDLE WINAPI OpenSCManagerA(LPCSTR lpMachineName, LPCSTR lpDatabaseName, DWORD dwDesiredAccess);

/* Adds a service to HKLM\SYSTEM\CurrentControlSet\Services\<name>
 * (ImagePath, DisplayName, Type, Start, ErrorControl, ObjectName).
 * ERROR_SERVICE_EXISTS for a name in use, ERROR_DUPLICATE_SERVICE_NAME for
 * a display name in use, ERROR_INVALID_NAME for an empty name, a name with
 * '/' or '\' or longer than 256 (ERROR_INVALID_ADDRESS for a null one),
 * ERROR_INVALID_PARAMETER for a bad type,
 * start type or error control or a missing path, ERROR_SERVICE_MARKED_FOR_
 * DELETE while a service of that name awaits deletion, ERROR_ACCESS_DENIED
 * without SC_MANAGER_CREATE_SERVICE. Group, dependencies and account as
 * CreateServiceW takes them; tags are not kept. */
WINBASEAPI SC_HANDLE WINAPI CreateServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, LPCSTR lpDisplayName,
                                           DWORD dwDesiredAccess, DWORD dwServiceType, DWORD dwStartType,
                                           DWORD dwErrorControl, LPCSTR lpBinaryPathName,
                                           LPCSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCSTR lpDependencies,
                                           LPCSTR lpServiceStartName, LPCSTR lpPassword);

/* Opens a service by its key name (case is ignored):
 * ERROR_SERVICE_DOES_NOT_EXIST, ERROR_INVALID_NAME for an empty or bad
 * name, ERROR_INVALID_ADDRESS for a null one. */
WINBASEAPI SC_HANDLE WINAPI OpenServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, DWORD dwDesiredAccess);

/* Starts the service's process and returns once its dispatcher has taken
 * the start (the state is then SERVICE_START_PENDING or later).
 * ERROR_SERVICE_ALREADY_RUNNING, ERROR_SERVICE_DISABLED,
 * ERROR_SERVICE_MARKED_FOR_DELETE, ERROR_FILE_NOT_FOUND for a missing
 * program, ERROR_SERVICE_REQUEST_TIMEOUT (1053) when the process does not
 * reach StartServiceCtrlDispatcherA within
 * HKLM\SYSTEM\CurrentControlSet\Control\ServicesPipeTimeout milliseconds
 * (default 30000; the process is then killed), ERROR_PROCESS_ABORTED when
 * it ends before. The arguments reach the service main function after the
 * service's name. The services it depends on are started first and waited
 * for until they run: ERROR_SERVICE_DEPENDENCY_FAIL when one cannot start,
 * ERROR_SERVICE_DEPENDENCY_DELETED when one does not exist,
 * ERROR_CIRCULAR_DEPENDENCY when they lead back to it. POSIX: a service of
 * another account than the manager's user runs as that user when the
 * manager runs as root; a manager that does not run as root refuses it
 * with ERROR_SERVICE_LOGON_FAILED. */
WINBASEAPI BOOL WINAPI StartServiceA(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCSTR *lpServiceArgVectors);

/* Sends a control and returns after the service's handler has returned,
 * with the status it last reported. ERROR_SERVICE_NOT_ACTIVE when it does
 * not run; ERROR_SERVICE_CANNOT_ACCEPT_CTRL while it is start or stop
 * pending; ERROR_INVALID_SERVICE_CONTROL for a control it does not accept;
 * ERROR_INVALID_PARAMETER for 0 or a code above 255;
 * ERROR_SERVICE_REQUEST_TIMEOUT when the handler does not return within the
 * pipe time-out; ERROR_DEPENDENT_SERVICES_RUNNING for a stop while a
 * service that depends on it runs. lpServiceStatus is filled for NO_ERROR
 * and those first three codes. Unlike Windows, SERVICE_CONTROL_SHUTDOWN may be sent too
 * (as the manager itself does when it stops). */
WINBASEAPI BOOL WINAPI ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus);

/* The status the service last reported (or the manager's own view:
 * stopped, start pending, stopped with ERROR_PROCESS_ABORTED after its
 * process died). */
WINBASEAPI BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus);

/* Marks the service for deletion: it is removed at once when stopped, else
 * when it stops. ERROR_SERVICE_MARKED_FOR_DELETE the second time. A handle
 * to a deleted service stays open and gives that code. */
WINBASEAPI BOOL WINAPI DeleteService(SC_HANDLE hService);

/* Closes a manager or service handle; ERROR_INVALID_HANDLE for anything else. */
WINBASEAPI BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject);

/* Services of the given types and states, in name order. ERROR_MORE_DATA
 * when they do not fit (*pcbBytesNeeded tells the size for the rest; resume
 * with *lpResumeHandle). */
WINBASEAPI BOOL WINAPI EnumServicesStatusA(SC_HANDLE hSCManager, DWORD dwServiceType, DWORD dwServiceState,
                                           LPENUM_SERVICE_STATUSA lpServices, DWORD cbBufSize,
                                           LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned,
                                           LPDWORD lpResumeHandle);

/* Connects the calling thread to the manager, runs the service main
 * function on a new thread and delivers controls to the handler on the
 * calling thread, one at a time; returns TRUE once the service reported
 * SERVICE_STOPPED. ERROR_FAILED_SERVICE_CONTROLLER_CONNECT in a process
 * the manager did not start, ERROR_SERVICE_ALREADY_RUNNING on a second
 * call, ERROR_INVALID_PARAMETER for a null or empty table. */
WINBASEAPI BOOL WINAPI StartServiceCtrlDispatcherA(const SERVICE_TABLE_ENTRYA *lpServiceStartTable);

/* The handler for controls, and the handle for SetServiceStatus. Null with
 * ERROR_SERVICE_DOES_NOT_EXIST when no service of that name runs in the
 * process (an own-process service takes any name), ERROR_INVALID_PARAMETER
 * for a null handler. */
WINBASEAPI SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerA(LPCSTR lpServiceName,
                                                                    LPHANDLER_FUNCTION lpHandlerProc);
WINBASEAPI SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExA(LPCSTR lpServiceName,
                                                                      LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                                      LPVOID lpContext);

/* Reports the status; the manager has it when the call returns (a report
 * made inside a handler, before the handler's answer reaches the caller of
 * ControlService).
 * ERROR_INVALID_HANDLE for a bad handle, ERROR_INVALID_DATA for a state
 * outside 1..7. */
WINBASEAPI BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus, LPSERVICE_STATUS lpServiceStatus);

/* The wide forms. Text travels to the manager as UTF-8 and is kept as
 * given, in any language; a string that is not well-formed UTF-16 (a lone
 * surrogate) fails with ERROR_INVALID_PARAMETER rather than being altered.
 * The A forms take the ANSI code page. */
WINBASEAPI SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName, DWORD dwDesiredAccess);
/* As CreateServiceA, and: lpLoadOrderGroup is kept as Group; lpDependencies
 * (a double-terminated list, groups after SC_GROUP_IDENTIFIERW) as
 * DependOnService and DependOnGroup; lpServiceStartName as ObjectName: a
 * user of the system ("name", ".\name" or "DOMAIN\name"), LocalSystem, or
 * NT AUTHORITY\LocalService or NetworkService (both "nobody"), else
 * ERROR_INVALID_SERVICE_ACCOUNT. The password is not kept. A dependency on
 * the service itself, or one that closes a circle, fails with
 * ERROR_CIRCULAR_DEPENDENCY. SERVICE_BOOT_START and SERVICE_SYSTEM_START are
 * for drivers: ERROR_INVALID_PARAMETER. */
WINBASEAPI SC_HANDLE WINAPI CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPCWSTR lpDisplayName,
                                           DWORD dwDesiredAccess, DWORD dwServiceType, DWORD dwStartType,
                                           DWORD dwErrorControl, LPCWSTR lpBinaryPathName,
                                           LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                                           LPCWSTR lpServiceStartName, LPCWSTR lpPassword);
WINBASEAPI SC_HANDLE WINAPI OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess);
WINBASEAPI BOOL WINAPI StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCWSTR *lpServiceArgVectors);

/* Changes what is not SERVICE_NO_CHANGE or null, with CreateServiceW's
 * rules. ERROR_ACCESS_DENIED without SERVICE_CHANGE_CONFIG. */
WINBASEAPI BOOL WINAPI ChangeServiceConfigW(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType,
                                            DWORD dwErrorControl, LPCWSTR lpBinaryPathName,
                                            LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                                            LPCWSTR lpServiceStartName, LPCWSTR lpPassword,
                                            LPCWSTR lpDisplayName);
/* SERVICE_CONFIG_DESCRIPTION: Description (a null lpDescription leaves it,
 * an empty one removes it); SERVICE_CONFIG_DELAYED_AUTO_START_INFO:
 * DelayedAutostart, which has effect on a SERVICE_AUTO_START service. */
WINBASEAPI BOOL WINAPI ChangeServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPVOID lpInfo);
/* ERROR_INSUFFICIENT_BUFFER with *pcbBytesNeeded when cbBufSize is short. */
WINBASEAPI BOOL WINAPI QueryServiceConfigW(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGW lpServiceConfig,
                                           DWORD cbBufSize, LPDWORD pcbBytesNeeded);
WINBASEAPI BOOL WINAPI QueryServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPBYTE lpBuffer,
                                            DWORD cbBufSize, LPDWORD pcbBytesNeeded);
/* The display name of a key name, and the key name of a display name (both
 * without case). *lpcchBuffer: the buffer's characters; on
 * ERROR_INSUFFICIENT_BUFFER the characters needed without the terminator. */
WINBASEAPI BOOL WINAPI GetServiceDisplayNameW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPWSTR lpDisplayName,
                                              LPDWORD lpcchBuffer);
WINBASEAPI BOOL WINAPI GetServiceKeyNameW(SC_HANDLE hSCManager, LPCWSTR lpDisplayName, LPWSTR lpServiceName,
                                          LPDWORD lpcchBuffer);
/* As EnumServicesStatusA, with the process ids; pszGroupName must be null. */
WINBASEAPI BOOL WINAPI EnumServicesStatusExW(SC_HANDLE hSCManager, SC_ENUM_TYPE InfoLevel, DWORD dwServiceType,
                                             DWORD dwServiceState, LPBYTE lpServices, DWORD cbBufSize,
                                             LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned,
                                             LPDWORD lpResumeHandle, LPCWSTR pszGroupName);
/* The status with the service's process id (0 while none runs). */
WINBASEAPI BOOL WINAPI QueryServiceStatusEx(SC_HANDLE hService, SC_STATUS_TYPE InfoLevel, LPBYTE lpBuffer,
                                            DWORD cbBufSize, LPDWORD pcbBytesNeeded);

TS_EXTERN_C_END

#define OpenSCManager               OpenSCManagerA
#define CreateService               CreateServiceA
#define OpenService                 OpenServiceA
#define StartService                StartServiceA
#define EnumServicesStatus          EnumServicesStatusA
#define StartServiceCtrlDispatcher  StartServiceCtrlDispatcherA
#define RegisterServiceCtrlHandler  RegisterServiceCtrlHandlerA
#define RegisterServiceCtrlHandlerEx RegisterServiceCtrlHandlerExA
#define SERVICE_TABLE_ENTRY         SERVICE_TABLE_ENTRYA
#define LPSERVICE_MAIN_FUNCTION     LPSERVICE_MAIN_FUNCTIONA
#define ENUM_SERVICE_STATUS         ENUM_SERVICE_STATUSA

#endif /* TSPLATFORM_WINSVC_H */
