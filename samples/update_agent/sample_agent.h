#pragma once

#include "samples/update_agent/agent_object.h"
#include "samples/update_agent/process_reference.h"
#include "update/update_agent.h"

#include <string>

/// A set of pending things, of which only the count is told.
class SampleCollection final : public AgentInterface<IUpdateAgentCollection>
{
public:
    explicit SampleCollection(LONG count) noexcept : m_count(count) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP get_Count(LONG* count) override;

private:
    ~SampleCollection() = default;

    const ProcessReference m_process;
    const LONG m_count;
    LONG m_references = 1;
};

/// The agent: it remembers products and answers from its files. It updates nothing.
class SampleAgent final : public AgentInterface<IUpdateAgent>, public AgentInterface<IUpdateAgentEx>
{
public:
    SampleAgent() = default;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP RegisterProduct(BSTR productGuid, BSTR version, BSTR serverAddress) override;
    STDMETHODIMP IsCheckWanted(BSTR productGuid, VARIANT_BOOL* wanted) override;
    STDMETHODIMP SetLanguage(BSTR productGuid, LONG languageCode) override;
    STDMETHODIMP StartForegroundUpdate(BSTR productGuid, LONG mode) override;
    STDMETHODIMP StartBackgroundUpdate(BSTR productGuid) override;

    STDMETHODIMP IsConnectedEx(BSTR productGuid, VARIANT_BOOL* connected) override;
    STDMETHODIMP SetServerAddress(BSTR productGuid, BSTR serverAddress) override;
    STDMETHODIMP SetProperty(BSTR productGuid, BSTR name, BSTR value) override;
    STDMETHODIMP GetUpdates(BSTR productGuid, IUpdateAgentCollection** updates) override;
    STDMETHODIMP GetMessages(BSTR productGuid, IUpdateAgentCollection** messages) override;

private:
    ~SampleAgent() = default;

    const ProcessReference m_process;
    LONG m_references = 1;
};
