// AfxMessageBox: a modal box with the text and the program's name.
#include <afx.h>

int AfxMessageBox(LPCSTR lpszText, UINT nType, UINT)
{
    return MessageBoxA(nullptr, lpszText ? lpszText : "", nullptr, nType);
}
