#pragma once

#include <windows.h>

#include <comutil.h>
#include <oaidl.h>

#include <cstddef>
#include <span>

namespace velt::tool
{
/// How a member is used; none can be set.
enum class ScriptMemberKind
{
    method,
    property,
    object, // a property whose arguments are those of the object's default member
};

/// What scripts can use of an object.
struct ScriptMember
{
    const wchar_t* name; // null for one that is known by its number only
    DISPID id;
    ScriptMemberKind kind;
    std::size_t leastArguments;
    std::size_t mostArguments;
};

/// An object that scripts use by the names of its members, which do not mind case. It lives in its
/// owner's scope: references on it do not keep it alive. What scripts do wrong fails as with the
/// system's script host: unknown members, members used as another kind, values of a wrong type.
class ScriptDispatch : public IDispatch
{
public:
    ScriptDispatch(const ScriptDispatch&) = delete;
    ScriptDispatch& operator=(const ScriptDispatch&) = delete;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                               DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override;

protected:
    /// Arguments of a call, the first one first.
    using Values = std::span<const _variant_t>;

    /// The members are constants.
    explicit ScriptDispatch(std::span<const ScriptMember> members) noexcept : m_members(members) {}

    ~ScriptDispatch() = default;

private:
    /// A member of the list is used, with as many arguments as it takes. Throws CommandFailure.
    virtual _variant_t Call(DISPID id, Values values) = 0;

    /// What a call that has succeeded answers: a failure ends the script.
    virtual HRESULT AfterCall() const noexcept
    {
        return S_OK;
    }

    const std::span<const ScriptMember> m_members;
};
} // namespace velt::tool
