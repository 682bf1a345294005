#include "tests/torture/trial.h"

#include <algorithm>
#include <cstdio>

namespace velt::torture
{
namespace
{
std::string Hex(HRESULT hr)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08lX", static_cast<unsigned long>(hr));
    return text;
}
} // namespace

Trial::Trial(const velt::test::ComponentLibrary& library, std::vector<Fault> faults, unsigned lane)
    : m_library(library),
      m_faults(std::move(faults)),
      m_lane(lane)
{
    FaultEngine::Arm(m_faults);
}

Trial::~Trial()
{
    FaultEngine::Disarm();
}

HRESULT Trial::Act(const std::function<HRESULT()>& call, HRESULT ordinary,
                   std::initializer_list<HRESULT> further)
{
    HRESULT hr = E_UNEXPECTED;
    Do([&] { hr = call(); });
    const bool isAllowed =
        hr == ordinary || (HasFailed() && (IsStated(hr) || std::find(further.begin(), further.end(),
                                                                     hr) != further.end()));
    Check(isAllowed, "answered " + Hex(hr));
    return hr;
}

void Trial::Do(const std::function<void()>& call)
{
    const auto start = std::chrono::steady_clock::now();
    FaultEngine::Resume();
    call();
    FaultEngine::Pause();
    m_slowest = std::max(m_slowest, std::chrono::steady_clock::now() - start);
}

void Trial::Check(bool holds, const std::string& what)
{
    if (!holds)
    {
        m_findings.push_back(what);
    }
}

bool Trial::IsStated(HRESULT hr) const
{
    return std::any_of(m_faults.begin(), m_faults.end(), [hr](const Fault& fault) {
        return FaultEngine::Function(fault.function).known->failures[fault.failure].stated == hr;
    });
}

std::wstring Trial::Place(const wchar_t* host) const
{
    const std::wstring number = IsAlone() ? L"" : L"-" + std::to_wstring(m_lane);
    return L"http://" + (host + number) + L".velt.example/";
}

std::vector<Operation> AllOperations()
{
    std::vector<Operation> operations;
    AddServerOperations(operations);
    AddCollectionOperations(operations);
    AddServiceOperations(operations);
    AddUpdateOperations(operations);
    AddExchangeOperations(operations);
    AddUiOperations(operations);
    return operations;
}

std::string NameOf(const Operation& operation)
{
    return std::string(operation.room) + ": " + operation.name;
}
} // namespace velt::torture
