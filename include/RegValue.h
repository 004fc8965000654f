// The typed registry values: one named value of a key, read and written as
// a string (RegistryString), a signed integer stored as decimal text
// (RegistryInt), a real stored as text (RegistryReal) or an unsigned
// integer stored as a REG_DWORD (RegistryUint). Nothing is cached as a
// value: every Get and Set is one registry call.
//
// A value built inside a key (the form with a RegistryKey) reads and
// writes through that key's handle, with its rights, and opens the key on
// demand; the key must outlive the value. A value built by name alone lives
// in the key at its parent path below its hive (the default path, see
// RegEntry.h), which each call opens for itself and closes again. A
// default-built value names nothing, and its Get and Set give FALSE.
//
// Reads take the data whatever type the registry reports. Every failure is
// FALSE with no message, and leaves the caller's number as it was.
//
// A value object belongs to one thread at a time; several objects may name
// one registry value.
#pragma once

#include "RegKey.h"

class TSUTIL_API RegistryValue : public RegistryEntry {
public:
    // Names nothing: every read and write fails.
    RegistryValue();
    // The value name in the key at the default parent path (see RegEntry.h).
    explicit RegistryValue(char const *name);
    // The value name in key, which is not owned and must outlive it.
    RegistryValue(char const *name, RegistryKey &key);
    // Touches neither the registry nor the key.
    virtual ~RegistryValue();

protected:
    // Reads the value's data into count bytes at data; count then holds
    // the bytes stored. The platform's status.
    LONG QueryData(void *data, DWORD &count);
    // Creates or replaces the value. The platform's status.
    LONG SetData(DWORD type, void const *data, DWORD count);

    unsigned long valueType; // REG_SZ or REG_DWORD, set by the typed classes

private:
    // The key that holds the value, with the rights for one call; owned
    // tells whether the caller closes it.
    HKEY KeyFor(REGSAM access, bool &owned);
};

// Text in the key, stored as REG_SZ with its terminator. Reads take at
// most regStringMaxLength bytes, terminator included.
class TSUTIL_API RegistryString : public RegistryValue {
public:
    // The three forms of RegistryValue's constructors; no buffer yet.
    RegistryString();
    explicit RegistryString(char const *name);
    RegistryString(char const *name, RegistryKey &key);
    // Frees the buffer; the registry keeps the value.
    virtual ~RegistryString();

    // Path with hive, " = \n  ", then the text or "(NULL)" when it cannot
    // be read.
    virtual void Dump(DiagDumpContext &stream) override;

    // Reads the text into the object's own buffer and points text at it
    // (null on failure). The pointer stays valid for the object's life and
    // shows the text of the latest GetByPtr or Set.
    BOOLTYPE GetByPtr(char const **text);
    // Reads the text into the caller's string; on failure the string keeps
    // its old length.
    BOOLTYPE Get(CString *text);
    // Writes the text with its terminator. A text longer than
    // regStringMaxLength bytes is refused (FALSE), the registry and the
    // buffer unchanged: cutting it would store other text than was given.
    // A refused write of the platform (a key opened for reading) leaves the
    // new text in the buffer.
    BOOLTYPE Set(char const *text);

protected:
    // The buffer, allocated at the first need; false when none can be had.
    bool HaveBuffer();
    // Bytes of text that the buffer holds at most: regStringMaxLength,
    // within the buffer made with an earlier limit; 0 when none fits.
    DWORD TextRoom() const;

    char *valueBuffer; // regStringMaxLength + 1 bytes of the first use, zero-filled
};

// A signed integer as decimal text. Reading accepts only the characters of
// validCharSet (a sign anywhere, digits), tested one by one; the number is
// then read from the start of the text, as atoi does (but saturated to the
// range of int instead of undefined past it). An empty text is 0.
class TSUTIL_API RegistryInt : public RegistryString {
public:
    // The three forms of RegistryValue's constructors.
    RegistryInt();
    explicit RegistryInt(char const *name);
    RegistryInt(char const *name, RegistryKey &key);
    virtual ~RegistryInt();

    // Path with hive, " = \n  ", then the number ("%d"; 0 when unreadable).
    virtual void Dump(DiagDumpContext &stream) override;

    // Reads the text into *value as told above. FALSE, *value untouched,
    // for a null pointer, a failed read or a character outside the set.
    BOOLTYPE Get(int *value);
    // Stores the decimal text: "-" for a negative number, no leading zeros.
    BOOLTYPE Set(int const &value);

protected:
    static char const *const validCharSet; // "+-0123456789"
};

// A real as text of the requested significant digits. Reading accepts only
// the characters of validCharSet (so only a lower-case exponent letter, and
// no text of an infinity or a NaN).
class TSUTIL_API RegistryReal : public RegistryString {
public:
    // The three forms of RegistryValue's constructors.
    RegistryReal();
    explicit RegistryReal(char const *name);
    RegistryReal(char const *name, RegistryKey &key);
    virtual ~RegistryReal();

    // Path with hive, " = \n  ", then the number ("%.6g"; 0 when unreadable).
    virtual void Dump(DiagDumpContext &stream) override;

    // Reads the text as a real (GenericText::StringToReal). FALSE, *value
    // untouched, for a null pointer, a failed read or a character outside
    // the set.
    BOOLTYPE Get(double *value);
    // As the double form, narrowed; a number beyond the range of float
    // becomes an infinity of its sign.
    BOOLTYPE Get(float *value);
    // digits significant digits, in decimal form where that fits and in
    // exponential form with "e" where not. digits below 1 are refused; above
    // 17 (more than a double holds) they are taken as 17, which keeps the
    // text within its 32 bytes.
    BOOLTYPE Set(double const &value, int digits);
    BOOLTYPE Set(float const &value, int digits);

protected:
    static char const *const validCharSet; // "+-0123456789e."
};

// An unsigned integer as a REG_DWORD of 4 bytes. A value of fewer bytes
// fills only the low bytes of the number; one of more bytes is refused.
class TSUTIL_API RegistryUint : public RegistryValue {
public:
    // The three forms of RegistryValue's constructors.
    RegistryUint();
    explicit RegistryUint(char const *name);
    RegistryUint(char const *name, RegistryKey &key);
    virtual ~RegistryUint();

    // Path with hive, " = \n  ", then the number ("0x%X"; 0 when unreadable).
    virtual void Dump(DiagDumpContext &stream) override;

    // Reads the value's data into *value (see above). FALSE for a null
    // pointer or a failed read.
    BOOLTYPE Get(unsigned int *value);
    // Creates or replaces the value as a REG_DWORD. FALSE when the platform
    // refused.
    BOOLTYPE Set(unsigned int const &value);
};
