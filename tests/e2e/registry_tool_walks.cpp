// The registry classes over keys that another process wrote: tsreg adds
// subkeys and values of each type, and a RegistryKey walks them while the
// typed values read them; a value written with SetRegDB reads back in
// tsreg.
#include <RegDB.h>
#include <RegValue.h>

#include "RegistryFixture.h"

#include <string>
#include <vector>

using tstest::RegistryTest;
using tstest::RunCaptured;

namespace {

class RegistryToolWalk : public RegistryTest {
protected:
    int Tsreg(const std::string &args)
    {
        std::string out;
        return RunCaptured("tsreg", args, out);
    }
    std::string Key(const std::string &sub = "") { return "\"HKCU\\" + path_ + (sub.empty() ? "" : "\\" + sub) + "\""; }
};

TEST_F(RegistryToolWalk, KeysAndValuesWrittenByTsregWalkAndRead)
{
    for (char const *sub : {"Beta", "alpha", "Gamma"})
        ASSERT_EQ(Tsreg("add " + Key(sub) + " /f"), 0);
    ASSERT_EQ(Tsreg("add " + Key() + " /v text /t REG_SZ /d words /f"), 0);
    ASSERT_EQ(Tsreg("add " + Key() + " /v count /t REG_DWORD /d 42 /f"), 0);
    ASSERT_EQ(Tsreg("add " + Key() + " /v signed /t REG_SZ /d -17 /f"), 0);

    RegistryKey key(HKEY_CURRENT_USER, path_.c_str(), KEY_READ, FALSE);
    std::vector<std::string> subkeys, values;
    unsigned int cursor = 0;
    CString name;
    for (int status = key.GetStartSubkey(&cursor, &name); status == 0; status = key.GetNextSubkey(&cursor, &name))
        subkeys.push_back(std::string(name));
    EXPECT_EQ(subkeys, (std::vector<std::string>{"alpha", "Beta", "Gamma"}));
    EXPECT_EQ(cursor, 0u);
    for (int status = key.GetStartValue(&cursor, &name); status == 0; status = key.GetNextValue(&cursor, &name))
        values.push_back(std::string(name));
    EXPECT_EQ(values.size(), 3u);

    RegistryString text("text", key);
    RegistryUint count("count", key);
    RegistryInt number("signed", key);
    CString read;
    unsigned int u = 0;
    int i = 0;
    EXPECT_EQ(text.Get(&read), TRUE);
    EXPECT_EQ(std::string(read), "words");
    EXPECT_EQ(count.Get(&u), TRUE);
    EXPECT_EQ(u, 42u);
    EXPECT_EQ(number.Get(&i), TRUE);
    EXPECT_EQ(i, -17);
}

TEST_F(RegistryToolWalk, ValuesOfSetRegDBReadBackInTsreg)
{
    CString path((path_ + "\\made\\here").c_str()), name("written"), value("by SetRegDB");
    ASSERT_EQ(SetRegDB(path, name, REG_SZ, value, HKEY_CURRENT_USER), 1);
    std::string out;
    ASSERT_EQ(RunCaptured("tsreg", "query " + Key("made\\here") + " /v written", out), 0);
    EXPECT_NE(out.find("written    REG_SZ    by SetRegDB"), std::string::npos) << out;
}

} // namespace
