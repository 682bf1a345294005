#include "ui/velt_eula_dlg.h"

#include "foundation/com_method.h"
#include "ui/eula_dialog.h"

#include <string>

namespace
{
/// A string of a caller's; null is an empty one.
std::wstring TextOf(BSTR text)
{
    return text ? std::wstring(text, ::SysStringLen(text)) : std::wstring();
}
} // namespace

CVeltEulaDlg::CVeltEulaDlg(IUnknown* outer) noexcept : ComObject(outer) {}

STDMETHODIMP CVeltEulaDlg::LaunchEula(BSTR szEulaPath, BSTR szEulaXMLPath, VARIANT_BOOL* bAccepted)
{
    return velt::ComMethod("CVeltEulaDlg::LaunchEula", [&] {
        if (!bAccepted)
        {
            return E_POINTER;
        }
        CEulaDialog dialog(TextOf(szEulaPath), TextOf(szEulaXMLPath));
        *bAccepted = VARIANT_FALSE;
        if (dialog.DoModal(::GetActiveWindow()) != 0) // by design also -1, a dialog that failed
        {
            *bAccepted = VARIANT_TRUE;
        }
        return S_OK;
    });
}
