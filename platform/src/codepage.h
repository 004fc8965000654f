// Code page tables, built once per code page from iconv (1252, the default,
// is carried in the layer itself): which bytes lead a double-byte
// character, what each character is in Unicode and back, and the case of
// single-byte letters. Conversions and the _mbs functions read
// these tables and never call iconv themselves.
#pragma once

#include <windows.h>

#include <stdint.h>

#include "unittable.h"

namespace tsp {

struct CodePage {
    static constexpr uint16_t kNone = 0xFFFF;

    UINT id = 0;
    bool doubleByte = false;
    bool lead[256] = {};
    bool trail[256] = {};            // follows some lead byte
    uint16_t single[256] = {};       // Unicode of each single byte; kNone: none
    UnitTable<uint16_t> pairs{kNone}; // double-byte pages: [lead << 8 | trail], kNone: none
    // Unicode unit to the page: a byte (< 0x100) or lead << 8 | trail;
    // kNone where the page lacks the character. Every entry converts back
    // to its unit; where several byte sequences mean one character, the
    // one that Windows writes.
    UnitTable<uint16_t> bytesOf{kNone};
    // Single-byte pages: bytesOf as bytes, with '?' (the page's default)
    // where the page lacks the unit, for the common conversion that needs
    // to know nothing else.
    UnitTable<unsigned char> narrow{'?'};
    uint16_t wideDefault = '?';      // what an invalid byte sequence becomes
    bool asciiSame = false;          // bytes 0-0x7F are U+0000-U+007F, both ways
    bool latin1Same = false;         // so are 0xA0-0xFF (a single-byte page such as 1252)
    bool everyByteMaps = false;      // single-byte page: no byte lacks a character
    unsigned char lower[256] = {};   // single-byte case maps (identity where there is no case)
    unsigned char upper[256] = {};
};

// The tables of a code page; null for a page that iconv does not know
// (and for UTF-7 and UTF-8, which have no such tables). Thread-safe; the
// tables live until the process ends.
const CodePage *codePage(UINT id);

// The table of bytes alone (_MB_CP_SBCS): no lead bytes, ASCII case.
const CodePage *bytesOnlyCodePage();

// The process's ANSI and OEM code pages: the registry values "ACP" and
// "OEMCP" of HKLM\SYSTEM\CurrentControlSet\Control\Nls\CodePage when they
// name a code page this layer knows, else 1252 and the OEM page that goes
// with the ANSI page. Read once, at the first call in the process.
UINT ansiCodePage();
UINT oemCodePage();

// CP_ACP, CP_THREAD_ACP, CP_OEMCP and CP_MACCP as the page they stand for;
// any other id as it is.
UINT resolveCodePage(UINT id);

} // namespace tsp
