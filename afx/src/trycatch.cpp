// Guarded sections: AFX_EXCEPTION_LINK and AfxTryCleanup.
#include <afx.h>
#include <afxstat_.h>

AFX_EXCEPTION_LINK::AFX_EXCEPTION_LINK() : m_pLinkPrev(nullptr), m_pException(nullptr)
{
    AFX_EXCEPTION_CONTEXT &context = AfxGetThreadState()->m_exceptionContext;
    m_pLinkPrev = context.m_pLinkTop;
    context.m_pLinkTop = this;
}

AFX_EXCEPTION_LINK::~AFX_EXCEPTION_LINK()
{
    // Sections end in reverse order of their start, so a link still in the
    // chain is its top; one that AfxTryCleanup took out is left alone.
    if (AfxGetThreadState()->m_exceptionContext.m_pLinkTop == this)
        AfxTryCleanup();
}

void AfxTryCleanup()
{
    AFX_EXCEPTION_CONTEXT &context = AfxGetThreadState()->m_exceptionContext;
    AFX_EXCEPTION_LINK *top = context.m_pLinkTop;
    if (!top)
        return;
    if (CException *caught = top->m_pException) {
        top->m_pException = nullptr;
        caught->Delete();
    }
    context.m_pLinkTop = top->m_pLinkPrev;
}
