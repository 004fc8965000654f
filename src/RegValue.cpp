// RegistryValue and its typed descendants.
#include "RegValue.h"

#include "DDUMPC.h"
#include "GenTxt.h"

#include <float.h>
#include <limits.h>
#include <math.h>
#include <mbstring.h>
#include <stdlib.h>
#include <string.h>

#include <cassert>

namespace {

// True when every character of text is one of the characters of set.
bool OnlyCharactersOf(char const *text, char const *set)
{
    unsigned char const *allowed = reinterpret_cast<unsigned char const *>(set);
    char character[GenericText::MAX_MBCS_BYTES + 1];
    for (unsigned char const *at = reinterpret_cast<unsigned char const *>(text); *at; at = _mbsinc(at)) {
        GenericText::CopyFirstCharString(character, reinterpret_cast<char const *>(at));
        if (!_mbspbrk(reinterpret_cast<unsigned char const *>(character), allowed))
            return false;
    }
    return true;
}

// The most significant digits that RegistryReal writes.
const int kRealDigits = 17;

} // namespace

// --- RegistryValue

RegistryValue::RegistryValue() : RegistryEntry(), valueType(REG_NONE) {}

RegistryValue::RegistryValue(char const *name) : RegistryEntry(name, TRUE), valueType(REG_NONE) {}

RegistryValue::RegistryValue(char const *name, RegistryKey &key) : RegistryEntry(name, key), valueType(REG_NONE) {}

RegistryValue::~RegistryValue() {}

HKEY RegistryValue::KeyFor(REGSAM access, bool &owned)
{
    owned = false;
    if (!localName)
        return HANDLE_NOT_AVAIL;
    if (parentKeyPtr)
        return parentKeyPtr->GetHandle();
    HKEY key = HANDLE_NOT_AVAIL;
    if (RegOpenKeyExA(baseHive, parentKeyPath, 0, access, &key) != ERROR_SUCCESS)
        return HANDLE_NOT_AVAIL;
    owned = true;
    return key;
}

LONG RegistryValue::QueryData(void *data, DWORD &count)
{
    bool owned;
    HKEY key = KeyFor(KEY_QUERY_VALUE, owned);
    if (key == HANDLE_NOT_AVAIL)
        return ERROR_INVALID_HANDLE;
    LONG status = RegQueryValueExA(key, localName, nullptr, nullptr, static_cast<BYTE *>(data), &count);
    if (owned) {
        [[maybe_unused]] LONG closed = RegCloseKey(key);
        assert(closed == ERROR_SUCCESS);
    }
    return status;
}

LONG RegistryValue::SetData(DWORD type, void const *data, DWORD count)
{
    bool owned;
    HKEY key = KeyFor(KEY_SET_VALUE, owned);
    if (key == HANDLE_NOT_AVAIL)
        return ERROR_INVALID_HANDLE;
    LONG status = RegSetValueExA(key, localName, 0, type, static_cast<BYTE const *>(data), count);
    if (owned) {
        [[maybe_unused]] LONG closed = RegCloseKey(key);
        assert(closed == ERROR_SUCCESS);
    }
    return status;
}

// --- RegistryString

RegistryString::RegistryString() : RegistryValue(), valueBuffer(nullptr) { valueType = REG_SZ; }

RegistryString::RegistryString(char const *name) : RegistryValue(name), valueBuffer(nullptr) { valueType = REG_SZ; }

RegistryString::RegistryString(char const *name, RegistryKey &key) : RegistryValue(name, key), valueBuffer(nullptr)
{
    valueType = REG_SZ;
}

RegistryString::~RegistryString() { FreeText(valueBuffer); }

bool RegistryString::HaveBuffer()
{
    if (!valueBuffer && regStringMaxLength > 0)
        valueBuffer = static_cast<char *>(
            GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, static_cast<SIZE_T>(regStringMaxLength) + 1));
    return valueBuffer != nullptr;
}

DWORD RegistryString::TextRoom() const
{
    if (regStringMaxLength <= 0)
        return 0;
    // The buffer keeps the size of its first use: a limit raised since
    // then reads no further than the buffer reaches.
    SIZE_T room = GlobalSize(valueBuffer) - 1;
    return static_cast<DWORD>(static_cast<SIZE_T>(regStringMaxLength) < room ? regStringMaxLength : room);
}

BOOLTYPE RegistryString::GetByPtr(char const **text)
{
    if (!text)
        return FALSE;
    *text = nullptr;
    if (!HaveBuffer())
        return FALSE;
    DWORD count = TextRoom();
    if (QueryData(valueBuffer, count) != ERROR_SUCCESS)
        return FALSE;
    valueBuffer[count] = 0; // data stored without a terminator ends here too
    *text = valueBuffer;
    return TRUE;
}

BOOLTYPE RegistryString::Get(CString *text)
{
    if (!text || regStringMaxLength <= 0)
        return FALSE;
    int oldLength = text->GetLength();
    char *buffer;
    try {
        buffer = text->GetBuffer(regStringMaxLength + 1);
    } catch (CException *e) {
        e->Delete();
        return FALSE;
    }
    DWORD count = static_cast<DWORD>(regStringMaxLength);
    if (QueryData(buffer, count) != ERROR_SUCCESS) {
        text->ReleaseBuffer(oldLength);
        return FALSE;
    }
    buffer[count] = 0;
    text->ReleaseBuffer(-1);
    return TRUE;
}

BOOLTYPE RegistryString::Set(char const *text)
{
    if (!text || !HaveBuffer())
        return FALSE;
    size_t length = strlen(text);
    if (length > TextRoom())
        return FALSE;
    memcpy(valueBuffer, text, length + 1);
    return SetData(REG_SZ, valueBuffer, static_cast<DWORD>(length + 1)) == ERROR_SUCCESS ? TRUE : FALSE;
}

void RegistryString::Dump(DiagDumpContext &stream)
{
    RegistryEntry::Dump(stream);
    char const *text = nullptr;
    GetByPtr(&text); // a failed read leaves null, written as "(NULL)"
    stream << " = \n  " << text;
}

// --- RegistryInt

char const *const RegistryInt::validCharSet = "+-0123456789";

RegistryInt::RegistryInt() : RegistryString() {}
RegistryInt::RegistryInt(char const *name) : RegistryString(name) {}
RegistryInt::RegistryInt(char const *name, RegistryKey &key) : RegistryString(name, key) {}
RegistryInt::~RegistryInt() {}

BOOLTYPE RegistryInt::Get(int *value)
{
    char const *text;
    if (!value || !GetByPtr(&text) || !OnlyCharactersOf(text, validCharSet))
        return FALSE;
    long long number = strtoll(text, nullptr, 10);
    *value = number > INT_MAX ? INT_MAX : number < INT_MIN ? INT_MIN : static_cast<int>(number);
    return TRUE;
}

BOOLTYPE RegistryInt::Set(int const &value)
{
    char text[16];
    return RegistryString::Set(_itoa(value, text, 10));
}

void RegistryInt::Dump(DiagDumpContext &stream)
{
    RegistryEntry::Dump(stream);
    int value = 0;
    Get(&value); // a failed read prints 0
    stream << " = \n  " << value;
}

// --- RegistryReal

char const *const RegistryReal::validCharSet = "+-0123456789e.";

RegistryReal::RegistryReal() : RegistryString() {}
RegistryReal::RegistryReal(char const *name) : RegistryString(name) {}
RegistryReal::RegistryReal(char const *name, RegistryKey &key) : RegistryString(name, key) {}
RegistryReal::~RegistryReal() {}

BOOLTYPE RegistryReal::Get(double *value)
{
    char const *text;
    if (!value || !GetByPtr(&text) || !OnlyCharactersOf(text, validCharSet))
        return FALSE;
    *value = GenericText::StringToReal(text);
    return TRUE;
}

BOOLTYPE RegistryReal::Get(float *value)
{
    double wide = ZERO64;
    if (!value || Get(&wide) != TRUE)
        return FALSE;
    if (wide > FLT_MAX)
        *value = HUGE_VALF;
    else if (wide < -FLT_MAX)
        *value = -HUGE_VALF;
    else
        *value = static_cast<float>(wide);
    return TRUE;
}

BOOLTYPE RegistryReal::Set(double const &value, int digits)
{
    if (digits < 1)
        return FALSE;
    char text[32];
    return RegistryString::Set(GenericText::RealToString(value, text, digits < kRealDigits ? digits : kRealDigits));
}

BOOLTYPE RegistryReal::Set(float const &value, int digits) { return Set(static_cast<double>(value), digits); }

void RegistryReal::Dump(DiagDumpContext &stream)
{
    RegistryEntry::Dump(stream);
    double value = 0.0;
    Get(&value); // a failed read prints 0
    stream << " = \n  " << value;
}

// --- RegistryUint

RegistryUint::RegistryUint() : RegistryValue() { valueType = REG_DWORD; }
RegistryUint::RegistryUint(char const *name) : RegistryValue(name) { valueType = REG_DWORD; }
RegistryUint::RegistryUint(char const *name, RegistryKey &key) : RegistryValue(name, key) { valueType = REG_DWORD; }
RegistryUint::~RegistryUint() {}

BOOLTYPE RegistryUint::Get(unsigned int *value)
{
    static_assert(sizeof(unsigned int) == 4, "a REG_DWORD fills an unsigned int");
    DWORD count = 4;
    return value && QueryData(value, count) == ERROR_SUCCESS ? TRUE : FALSE;
}

BOOLTYPE RegistryUint::Set(unsigned int const &value)
{
    return SetData(REG_DWORD, &value, 4) == ERROR_SUCCESS ? TRUE : FALSE;
}

void RegistryUint::Dump(DiagDumpContext &stream)
{
    RegistryEntry::Dump(stream);
    unsigned int value = 0;
    Get(&value); // a failed read prints 0
    stream << " = \n  " << value;
}
