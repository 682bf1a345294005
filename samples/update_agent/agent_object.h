#pragma once

#include "samples/update_agent/agent_files.h"

#include <windows.h>

#include <oaidl.h>
#include <wrl/client.h>

/// IDispatch of a dual interface, served from the type library in this program.
template <class Dual>
class AgentInterface : public Dual
{
public:
    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        *count = 1;
        return S_OK;
    }

    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** info) override
    {
        *info = nullptr;
        Microsoft::WRL::ComPtr<ITypeLib> library;
        const HRESULT hr = index == 0 ? ::LoadTypeLib(agent_files::ProgramPath().c_str(), &library)
                                      : DISP_E_BADINDEX;
        return FAILED(hr) ? hr : library->GetTypeInfoOfGuid(__uuidof(Dual), info);
    }

    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override
    {
        Microsoft::WRL::ComPtr<ITypeInfo> info;
        const HRESULT hr = GetTypeInfo(0, lcid, &info);
        return FAILED(hr) ? hr : info->GetIDsOfNames(names, count, ids);
    }

    STDMETHODIMP Invoke(DISPID id, REFIID, LCID lcid, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override
    {
        Microsoft::WRL::ComPtr<ITypeInfo> info;
        const HRESULT hr = GetTypeInfo(0, lcid, &info);
        return FAILED(hr) ? hr
                          : info->Invoke(static_cast<Dual*>(this), id, flags, parameters, result,
                                         exception, argumentError);
    }

protected:
    ~AgentInterface() = default;
};
