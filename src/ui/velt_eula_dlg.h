#pragma once

#include "foundation/com_object.h"
#include "foundation/dispatch_impl.h"

#include <provider_lib.h>

/// Shows licence agreements. It keeps nothing between calls, so any apartment may own it and any
/// number of threads may show a dialog at once.
class CVeltEulaDlg final : public velt::ComObject<CVeltEulaDlg, velt::DispatchImpl<IVeltEulaDlg>>
{
public:
    explicit CVeltEulaDlg(IUnknown* outer) noexcept;

    /// Shows the agreement, an RTF file, until the user presses OK; the caller's active window owns
    /// the dialog. `szEulaXMLPath` names a file with the dialog's texts, and none leaves them
    /// English. `bAccepted` tells whether the user accepted: pressed OK while accepting was chosen.
    /// An agreement that cannot be opened, and a dialog that is over in any other way, are not.
    ///
    /// By design, a dialog that the system cannot create counts as accepted, and every call
    /// answers S_OK but one: without its skin the dialog is not shown, and the failure returned.
    STDMETHODIMP LaunchEula(BSTR szEulaPath, BSTR szEulaXMLPath, VARIANT_BOOL* bAccepted) override;
};
