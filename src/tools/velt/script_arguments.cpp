#include "tools/velt/script_arguments.h"

#include "tools/velt/command_context.h"
#include "tools/velt/variant_text.h"

#include <algorithm>
#include <iterator>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
enum MemberId : DISPID
{
    kItem = DISPID_VALUE,
    kNewEnum = DISPID_NEWENUM,
    kCount = 1,
    kLength,
    kExists,
    kNamed,
    kUnnamed,
};

using Kind = ScriptMemberKind;

constexpr ScriptMember kTextsMembers[] = {
    {L"Item", kItem, Kind::property, 1, 1},
    {L"Count", kCount, Kind::method, 0, 0},
    {L"length", kLength, Kind::property, 0, 0},
    {nullptr, kNewEnum, Kind::property, 0, 0},
};
constexpr ScriptMember kNamedMembers[] = {
    {L"Item", kItem, Kind::property, 1, 1},     {L"Count", kCount, Kind::method, 0, 0},
    {L"length", kLength, Kind::property, 0, 0}, {L"Exists", kExists, Kind::method, 1, 1},
    {nullptr, kNewEnum, Kind::property, 0, 0},
};
constexpr ScriptMember kArgumentsMembers[] = {
    {L"Item", kItem, Kind::property, 1, 1},     {L"Count", kCount, Kind::method, 0, 0},
    {L"length", kLength, Kind::property, 0, 0}, {L"Named", kNamed, Kind::object, 0, 0},
    {L"Unnamed", kUnnamed, Kind::object, 0, 0}, {nullptr, kNewEnum, Kind::property, 0, 0},
};

bool IsNamed(std::wstring_view argument) noexcept
{
    return argument.starts_with(L'/');
}

bool IsSame(const std::wstring& a, const std::wstring& b) noexcept
{
    return ::CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

std::vector<std::wstring> Unnamed(const std::vector<std::wstring>& arguments)
{
    std::vector<std::wstring> unnamed;
    std::remove_copy_if(arguments.begin(), arguments.end(), std::back_inserter(unnamed), &IsNamed);
    return unnamed;
}

_variant_t Number(std::size_t count)
{
    return {static_cast<long>(count)};
}
} // namespace

ScriptEnumeration::~ScriptEnumeration()
{
    if (m_collection)
    {
        m_collection->Clear(); // by design, its last reference frees nothing
    }
}

_variant_t ScriptEnumeration::Begin(const std::vector<std::wstring>& texts)
{
    if (!m_collection)
    {
        m_collection = m_component.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
        for (const std::wstring& text : texts)
        {
            _variant_t value(text.c_str());
            Require(m_collection->Add(value), L"the arguments");
            value.Detach(); // by design, the collection has taken over what it owns
        }
    }
    ComPtr<IUnknown> enumerator;
    Require(m_collection->get__NewEnum(&enumerator), L"the arguments");
    return {enumerator.Get()};
}

ScriptTexts::ScriptTexts(const Component& component, std::vector<std::wstring> values)
    : ScriptTexts(kTextsMembers, component, std::move(values))
{
}

ScriptTexts::ScriptTexts(std::span<const ScriptMember> members, const Component& component,
                         std::vector<std::wstring> values)
    : ScriptDispatch(members),
      m_values(std::move(values)),
      m_enumeration(component)
{
}

_variant_t ScriptTexts::At(const _variant_t& index) const
{
    const long at = VariantNumber(index);
    if (at < 0 || static_cast<std::size_t>(at) >= m_values.size())
    {
        throw CommandFailure{DISP_E_BADINDEX, L"no such argument"};
    }
    return {m_values[static_cast<std::size_t>(at)].c_str()};
}

_variant_t ScriptTexts::Call(DISPID id, Values values)
{
    switch (id)
    {
    case kItem:
        return At(values[0]);
    case kNewEnum:
        return m_enumeration.Begin(m_values);
    default:
        return Number(m_values.size());
    }
}

ScriptNamedArguments::ScriptNamedArguments(const Component& component,
                                           const std::vector<std::wstring>& arguments)
    : ScriptDispatch(kNamedMembers),
      m_enumeration(component)
{
    for (const std::wstring& argument : arguments)
    {
        if (IsNamed(argument))
        {
            Add(std::wstring_view(argument).substr(1));
        }
    }
}

void ScriptNamedArguments::Add(std::wstring_view text)
{
    std::wstring name(text.substr(0, text.find(L':')));
    _variant_t value; // none
    if (name.size() < text.size())
    {
        value = std::wstring(text.substr(name.size() + 1)).c_str();
    }
    else if (name.ends_with(L'+') || name.ends_with(L'-'))
    {
        value = name.ends_with(L'+');
        name.pop_back();
    }
    std::erase_if(m_arguments, [&name](const Argument& each) { return IsSame(each.first, name); });
    m_arguments.emplace_back(std::move(name), std::move(value));
}

const ScriptNamedArguments::Argument* ScriptNamedArguments::Find(
    const std::wstring& name) const noexcept
{
    const auto found = std::find_if(m_arguments.begin(), m_arguments.end(),
                                    [&](const Argument& each) { return IsSame(each.first, name); });
    return found == m_arguments.end() ? nullptr : &*found;
}

_variant_t ScriptNamedArguments::Call(DISPID id, Values values)
{
    const Argument* const found =
        id == kItem || id == kExists ? Find(VariantText(values[0])) : nullptr;
    switch (id)
    {
    case kItem:
        return found ? found->second : _variant_t();
    case kExists:
        return {found != nullptr};
    case kNewEnum:
    {
        std::vector<std::wstring> names;
        for (const Argument& argument : m_arguments)
        {
            names.push_back(argument.first);
        }
        return m_enumeration.Begin(names);
    }
    default:
        return Number(m_arguments.size());
    }
}

ScriptArguments::ScriptArguments(const Component& component,
                                 const std::vector<std::wstring>& arguments)
    : ScriptTexts(kArgumentsMembers, component, arguments),
      m_named(component, arguments),
      m_unnamed(component, Unnamed(arguments))
{
}

_variant_t ScriptArguments::Call(DISPID id, Values values)
{
    switch (id)
    {
    case kNamed:
        return {static_cast<IDispatch*>(&m_named)};
    case kUnnamed:
        return {static_cast<IDispatch*>(&m_unnamed)};
    default:
        return ScriptTexts::Call(id, values);
    }
}
} // namespace velt::tool
