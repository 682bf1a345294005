#pragma once

#include "tools/velt/component.h"
#include "tools/velt/script_dispatch.h"

#include <provider_lib.h>

#include <wrl/client.h>

#include <string>
#include <utility>
#include <vector>

namespace velt::tool
{
/// Texts that scripts enumerate, in a collection of the component's.
class ScriptEnumeration
{
public:
    /// The component outlives the object.
    explicit ScriptEnumeration(const Component& component) noexcept : m_component(component) {}

    ScriptEnumeration(const ScriptEnumeration&) = delete;
    ScriptEnumeration& operator=(const ScriptEnumeration&) = delete;

    ~ScriptEnumeration();

    /// An enumerator of the texts, which are always the same. Throws CommandFailure.
    _variant_t Begin(const std::vector<std::wstring>& texts);

private:
    const Component& m_component;
    Microsoft::WRL::ComPtr<IEnumVariantCol> m_collection; // made when it is asked for
};

/// Texts by their position: what scripts get from WScript.Arguments.Unnamed.
class ScriptTexts : public ScriptDispatch
{
public:
    /// The component outlives the object.
    ScriptTexts(const Component& component, std::vector<std::wstring> values);

    ScriptTexts(const ScriptTexts&) = delete;
    ScriptTexts& operator=(const ScriptTexts&) = delete;

    ~ScriptTexts() = default;

protected:
    ScriptTexts(std::span<const ScriptMember> members, const Component& component,
                std::vector<std::wstring> values);

    _variant_t Call(DISPID id, Values values) override;

private:
    /// The text at a position from 0. Throws CommandFailure.
    _variant_t At(const _variant_t& index) const;

    const std::vector<std::wstring> m_values;
    ScriptEnumeration m_enumeration;
};

/// Values by their names, which do not mind case: what scripts get from WScript.Arguments.Named. Of
/// several arguments with one name the last one counts.
class ScriptNamedArguments final : public ScriptDispatch
{
public:
    /// As above. Arguments that begin with a slash are "/NAME:VALUE", "/NAME+" and "/NAME-", which
    /// are true and false, or "/NAME", which has no value; the others are left out.
    ScriptNamedArguments(const Component& component, const std::vector<std::wstring>& arguments);

    ScriptNamedArguments(const ScriptNamedArguments&) = delete;
    ScriptNamedArguments& operator=(const ScriptNamedArguments&) = delete;

    ~ScriptNamedArguments() = default;

private:
    using Argument = std::pair<std::wstring, _variant_t>;

    _variant_t Call(DISPID id, Values values) override;
    const Argument* Find(const std::wstring& name) const noexcept;
    void Add(std::wstring_view text);

    std::vector<Argument> m_arguments; // in their order
    ScriptEnumeration m_enumeration;
};

/// What scripts get from WScript.Arguments: all of them, and the two kinds by themselves.
class ScriptArguments final : public ScriptTexts
{
public:
    ScriptArguments(const Component& component, const std::vector<std::wstring>& arguments);

    ScriptArguments(const ScriptArguments&) = delete;
    ScriptArguments& operator=(const ScriptArguments&) = delete;

    ~ScriptArguments() = default;

private:
    _variant_t Call(DISPID id, Values values) override;

    ScriptNamedArguments m_named;
    ScriptTexts m_unnamed;
};
} // namespace velt::tool
