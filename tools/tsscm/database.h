// The service database: HKLM\SYSTEM\CurrentControlSet\Services\<name>, one
// key per service with ImagePath, DisplayName, Type, Start, ErrorControl and
// ObjectName, as Windows keeps it.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace tsscm {

struct ServiceConfig {
    std::string name; // the key's own spelling
    std::string imagePath;
    std::string displayName;
    DWORD type = 0;
    DWORD start = SERVICE_DEMAND_START;
    DWORD errorControl = SERVICE_ERROR_NORMAL;
    std::string account;
};

// The service's entry, found without regard to case; false when there is
// no such key or it is not a Win32 service.
bool readService(const std::string &name, ServiceConfig &out);

// Every Win32 service, in the order the registry gives the keys.
std::vector<ServiceConfig> readAllServices();

// Writes a new entry; a registry error code on failure.
LONG writeService(const ServiceConfig &config);

// Removes the entry and everything below it.
LONG deleteService(const std::string &name);

// A DWORD below HKLM\SYSTEM\CurrentControlSet\Control, or fallback.
DWORD readControlValue(const char *value, DWORD fallback);

} // namespace tsscm
