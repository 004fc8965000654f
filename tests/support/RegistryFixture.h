// A scratch key for each registry test: HKCU\Software\TSUtilTests\<test>,
// in a machine root of its own on POSIX, removed before and after the test.
#pragma once

#include "TestSupport.h"

#include <string>

namespace tstest {

// Removes a key with its whole tree; ERROR_FILE_NOT_FOUND when missing.
// Through the W calls, which reach names of any language.
inline LONG DeleteRegTree(HKEY parent, const std::basic_string<WCHAR> &sub)
{
    HKEY key;
    LONG r = RegOpenKeyExW(parent, sub.c_str(), 0, KEY_READ, &key);
    if (r != ERROR_SUCCESS)
        return r;
    WCHAR name[256];
    DWORD cch = 256;
    while ((r = RegEnumKeyExW(key, 0, name, &cch, nullptr, nullptr, nullptr, nullptr)) == ERROR_SUCCESS) {
        if ((r = DeleteRegTree(key, std::basic_string<WCHAR>(name, cch))) != ERROR_SUCCESS)
            break;
        cch = 256;
    }
    RegCloseKey(key);
    if (r != ERROR_NO_MORE_ITEMS)
        return r;
    return RegDeleteKeyW(parent, sub.c_str());
}

// The same for a path of ASCII letters (the tests' own key names).
inline LONG DeleteRegTree(HKEY parent, const std::string &ascii)
{
    std::basic_string<WCHAR> wide;
    for (char c : ascii)
        wide += static_cast<WCHAR>(static_cast<unsigned char>(c));
    return DeleteRegTree(parent, wide);
}

// Reads a value of four bytes into v.
inline LONG GetDword(HKEY k, const std::string &name, DWORD &v)
{
    DWORD cb = sizeof v;
    return RegQueryValueExA(k, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE *>(&v), &cb);
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        path_ = std::string("Software\\TSUtilTests\\") + ::testing::UnitTest::GetInstance()->current_test_info()->name();
        DeleteRegTree(HKEY_CURRENT_USER, path_);
        ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key_,
                                  nullptr),
                  ERROR_SUCCESS);
    }
    void TearDown() override
    {
        RegCloseKey(key_);
        DeleteRegTree(HKEY_CURRENT_USER, path_);
    }

    HKEY Create(const char *sub, DWORD *disposition = nullptr, const char *cls = nullptr, HKEY parent = nullptr)
    {
        HKEY k = nullptr;
        EXPECT_EQ(RegCreateKeyExA(parent ? parent : key_, sub, 0, const_cast<LPSTR>(cls), 0, KEY_ALL_ACCESS, nullptr,
                                  &k, disposition),
                  ERROR_SUCCESS)
            << sub;
        return k;
    }

    void SetDword(HKEY k, const char *name, DWORD v)
    {
        EXPECT_EQ(RegSetValueExA(k, name, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&v), 4), ERROR_SUCCESS);
    }

    ScopedMachineRoot root_;
    std::string path_;
    HKEY key_ = nullptr;
};

} // namespace tstest
