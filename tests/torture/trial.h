#pragma once

#include "tests/support/component_library.h"
#include "tests/torture/fault_engine.h"

#include <windows.h>

#include <oleauto.h>
#include <wrl/client.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace velt::torture
{
/// One run of an operation with some calls failing, or none. Everything outside of Act goes
/// through as ever.
class Trial
{
public:
    /// `lane` is a number that no other thread has which runs operations at the same time, also in
    /// other processes; 0 where there are none.
    Trial(const velt::test::ComponentLibrary& library, std::vector<Fault> faults,
          unsigned lane = 0);

    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    ~Trial();

    const velt::test::ComponentLibrary& Library() const noexcept
    {
        return m_library;
    }

    template <class Interface>
    Microsoft::WRL::ComPtr<Interface> Create(REFCLSID clsid) const
    {
        return m_library.Create<Interface>(clsid);
    }

    /// Makes a call with the faults armed. Without a fault its result is `ordinary`; with one it is
    /// that too, or what is stated for the fault, or one of `further`. Anything else is a finding.
    HRESULT Act(const std::function<HRESULT()>& call, HRESULT ordinary = S_OK,
                std::initializer_list<HRESULT> further = {});

    /// The same for calls that return nothing.
    void Do(const std::function<void()>& call);

    /// Tells of a finding unless it holds.
    void Check(bool holds, const std::string& what);

    /// Tells of a finding unless it holds, in runs in which nothing has failed.
    void CheckOrdinary(bool holds, const std::string& what)
    {
        Check(holds || HasFailed(), what);
    }

    bool HasFaults() const noexcept
    {
        return !m_faults.empty();
    }

    /// Whether one of them has come to pass.
    bool HasFailed() const
    {
        return FaultEngine::Injected() > 0;
    }

    /// Whether nothing else uses the component meanwhile, so that its state can be looked at.
    bool IsAlone() const noexcept
    {
        return m_lane == 0;
    }

    /// A page of a host that no other thread uses meanwhile.
    std::wstring Place(const wchar_t* host) const;

    const std::vector<std::string>& Findings() const noexcept
    {
        return m_findings;
    }

    /// How long the slowest of its calls has taken.
    std::chrono::steady_clock::duration Slowest() const noexcept
    {
        return m_slowest;
    }

private:
    bool IsStated(HRESULT hr) const;

    const velt::test::ComponentLibrary& m_library;
    const std::vector<Fault> m_faults;
    const unsigned m_lane;
    std::chrono::steady_clock::duration m_slowest{};
    std::vector<std::string> m_findings;
};

/// The place for a text that a member hands out: untouched, or whole and then freed.
class OutText
{
public:
    OutText() = default;

    OutText(const OutText&) = delete;
    OutText& operator=(const OutText&) = delete;

    ~OutText()
    {
        if (IsTouched())
        {
            ::SysFreeString(m_text);
        }
    }

    BSTR* Place() noexcept
    {
        return &m_text;
    }

    bool IsTouched() const noexcept
    {
        return m_text != m_poison;
    }

    /// A failure has left it alone; touched, it is the text that is expected.
    void Check(Trial& trial, HRESULT hr, const wchar_t* expected) const
    {
        trial.Check(!FAILED(hr) || !IsTouched(), "a failure wrote the out value");
        if (IsTouched())
        {
            trial.Check(m_text && std::wstring(m_text, ::SysStringLen(m_text)) == expected,
                        "the out value is not whole");
        }
        trial.CheckOrdinary(IsTouched(), "no out value");
    }

private:
    wchar_t m_poisonText[1] = {};
    BSTR m_poison = m_poisonText;
    BSTR m_text = m_poison;
};

/// A string that is lent to the component.
class InText
{
public:
    InText(const wchar_t* text) : m_text(::SysAllocString(text)) {} // as the argument itself

    InText(const InText&) = delete;
    InText& operator=(const InText&) = delete;

    ~InText()
    {
        ::SysFreeString(m_text);
    }

    operator BSTR() const noexcept // as the argument itself
    {
        return m_text;
    }

private:
    BSTR m_text;
};

/// What an operation is: its name, and one run of it.
struct Operation
{
    const char* room;
    const char* name;
    std::function<void(Trial&)> run;

    /// What of it makes the system itself keep memory for good, done without the component; null
    /// where nothing does. See docs/wine.md.
    std::function<void()> bare = nullptr;
};

/// All of them.
std::vector<Operation> AllOperations();

std::string NameOf(const Operation& operation);

// One function for each room, in its own file:
void AddServerOperations(std::vector<Operation>& operations);
void AddCollectionOperations(std::vector<Operation>& operations);
void AddExchangeOperations(std::vector<Operation>& operations); // of connection and internet
void AddServiceOperations(std::vector<Operation>& operations);
void AddUpdateOperations(std::vector<Operation>& operations);
void AddUiOperations(std::vector<Operation>& operations);
} // namespace velt::torture
