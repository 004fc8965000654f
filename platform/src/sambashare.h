// Publishing shares through Samba's usershares (`net usershare`), where
// Samba is installed and its usershares are enabled.
#pragma once

#include <string>

namespace tsp {

class SambaUsershares {
public:
    // Finds Samba's configuration: the file that the REG_SZ value
    // "SambaConfiguration" of the key
    // HKLM\SYSTEM\CurrentControlSet\Services\LanmanServer\Parameters
    // names (a Windows or a POSIX path), else /etc/samba/smb.conf. Samba is
    // available when the file exists and `net -s <file> usershare info`
    // runs and succeeds (it fails where usershares are disabled). `net` is
    // always given the file, so it never falls back on a default of its own.
    SambaUsershares();

    bool available() const { return available_; }
    // Publishes name (UTF-8) for the folder with the remark and an access
    // list in Samba's form ("S-1-22-1-1000:F,S-1-1-0:R"). False when Samba
    // refuses.
    bool publish(const std::string &name, const std::string &posixPath, const std::string &remark,
                 const std::string &acl) const;
    // Withdraws name; true when it is not published afterwards.
    bool withdraw(const std::string &name) const;
    bool isPublished(const std::string &name) const;

private:
    // Runs net with -s and the configuration, then args (null-ended); its
    // exit code, or -1 when it cannot be run. Its standard output goes to
    // output if given, else nowhere, as does its error output.
    int net(const char *const *args, std::string *output = nullptr) const;

    std::string config_;
    bool available_ = false;
};

} // namespace tsp
