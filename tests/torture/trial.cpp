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

Trial::Trial(const velt::test::ComponentLibrary& library, std::vector<Fault> faults)
    : m_library(library),
      m_faults(std::move(faults))
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
    FaultEngine::Resume();
    const HRESULT hr = call();
    FaultEngine::Pause();
    const bool isAllowed =
        hr == ordinary || (HasFailed() && (IsStated(hr) || std::find(further.begin(), further.end(),
                                                                     hr) != further.end()));
    Check(isAllowed, "answered " + Hex(hr));
    return hr;
}

void Trial::Do(const std::function<void()>& call)
{
    FaultEngine::Resume();
    call();
    FaultEngine::Pause();
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
} // namespace velt::torture
