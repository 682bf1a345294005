#pragma once

#include <windows.h>

#include <objbase.h>
#include <objidl.h>

#include <stdexcept>

namespace velt::test
{
/// Counts how often COM is initialised and uninitialised on the calling thread, and can have an
/// initialisation answer with another code. Lives on the stack, longer than COM asks for it;
/// failures throw std::runtime_error.
class InitializeSpy final : public IInitializeSpy
{
public:
    InitializeSpy()
    {
        if (FAILED(::CoRegisterInitializeSpy(this, &m_cookie)))
        {
            throw std::runtime_error("the spy cannot be registered");
        }
    }

    InitializeSpy(const InitializeSpy&) = delete;
    InitializeSpy& operator=(const InitializeSpy&) = delete;

    ~InitializeSpy()
    {
        ::CoRevokeInitializeSpy(m_cookie);
    }

    /// Has the initialisations from now on answer with this code.
    void AnswerWith(HRESULT answer) noexcept
    {
        m_answer = answer;
        m_answers = true;
    }

    int Initialised() const noexcept
    {
        return m_initialised;
    }

    int Uninitialised() const noexcept
    {
        return m_uninitialised;
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool isKnown =
            ::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, __uuidof(IInitializeSpy));
        *object = isKnown ? this : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return 2;
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return 1;
    }

    STDMETHODIMP PreInitialize(DWORD, DWORD) override
    {
        ++m_initialised;
        return S_OK;
    }

    STDMETHODIMP PostInitialize(HRESULT hr, DWORD, DWORD) override
    {
        return m_answers ? m_answer : hr;
    }

    STDMETHODIMP PreUninitialize(DWORD) override
    {
        ++m_uninitialised;
        return S_OK;
    }

    STDMETHODIMP PostUninitialize(DWORD) override
    {
        return S_OK;
    }

private:
    ULARGE_INTEGER m_cookie{};
    HRESULT m_answer = S_OK;
    bool m_answers = false;
    int m_initialised = 0;
    int m_uninitialised = 0;
};
} // namespace velt::test
