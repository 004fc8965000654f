// CObject and the run-time class records.
#include <afx.h>

const CRuntimeClass CObject::classCObject = {"CObject", sizeof(CObject), 0xFFFF, nullptr, nullptr};

BOOL CRuntimeClass::IsDerivedFrom(const CRuntimeClass *pBaseClass) const
{
    for (const CRuntimeClass *c = this; c; c = c->m_pBaseClass)
        if (c == pBaseClass)
            return TRUE;
    return FALSE;
}

CObject *CRuntimeClass::CreateObject()
{
    if (!m_pfnCreateObject)
        return nullptr;
    try {
        return m_pfnCreateObject();
    } catch (CException *e) {
        e->Delete();
        return nullptr;
    }
}

CObject::~CObject() {}

CRuntimeClass *CObject::GetRuntimeClass() const { return RUNTIME_CLASS(CObject); }

void CObject::Serialize(CArchive &) {}

void CObject::AssertValid() const {}

void CObject::Dump(CDumpContext &dc) const
{
    dc << "a " << GetRuntimeClass()->m_lpszClassName << " at " << static_cast<const void *>(this) << "\n";
}

BOOL CObject::IsKindOf(const CRuntimeClass *pClass) const { return GetRuntimeClass()->IsDerivedFrom(pClass); }

BOOL CObject::IsSerializable() const { return GetRuntimeClass()->m_wSchema != 0xFFFF; }
