#include "tools/velt/script_object.h"

#include "foundation/exception_to_hresult.h"
#include "foundation/wide_text.h"
#include "tools/velt/message_wait.h"
#include "tools/velt/variant_text.h"

#include <algorithm>
#include <array>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
enum Member : DISPID
{
    kArguments = 1,
    kConnectObject,
    kCreateObject,
    kDisconnectObject,
    kEcho,
    kQuit,
    kScriptFullName,
    kScriptName,
    kSleep,
};

enum ArgumentsMember : DISPID
{
    kItem = DISPID_VALUE,
    kCount = 1,
    kLength,
};

struct NameRow
{
    const wchar_t* name;
    DISPID id;
};
constexpr std::array<NameRow, 9> kNames = {{
    {L"Arguments", kArguments},
    {L"ConnectObject", kConnectObject},
    {L"CreateObject", kCreateObject},
    {L"DisconnectObject", kDisconnectObject},
    {L"Echo", kEcho},
    {L"Quit", kQuit},
    {L"ScriptFullName", kScriptFullName},
    {L"ScriptName", kScriptName},
    {L"Sleep", kSleep},
}};
constexpr std::array<NameRow, 3> kArgumentsNames = {{
    {L"Item", kItem},
    {L"Count", kCount},
    {L"length", kLength},
}};

/// Names do not mind case.
HRESULT FindName(std::span<const NameRow> rows, const wchar_t* name, DISPID* id) noexcept
{
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const NameRow& row) {
        return ::CompareStringOrdinal(row.name, -1, name, -1, TRUE) == CSTR_EQUAL;
    });
    *id = found == rows.end() ? DISPID_UNKNOWN : found->id;
    return found == rows.end() ? DISP_E_UNKNOWNNAME : S_OK;
}

HRESULT FindNames(std::span<const NameRow> rows, LPOLESTR* names, UINT count, DISPID* ids) noexcept
{
    if (!names || !ids || count == 0)
    {
        return E_INVALIDARG;
    }
    std::fill(ids, ids + count, DISPID_UNKNOWN); // arguments have no names
    const HRESULT hr = FindName(rows, names[0], ids);
    return SUCCEEDED(hr) && count > 1 ? DISP_E_UNKNOWNNAME : hr;
}

HRESULT QueryDispatch(IDispatch* self, REFIID iid, void** object) noexcept
{
    if (!object)
    {
        return E_POINTER;
    }
    *object = iid == IID_IUnknown || iid == IID_IDispatch ? self : nullptr;
    return *object ? S_OK : E_NOINTERFACE;
}

/// A call's arguments, the first one first.
std::vector<_variant_t> ValuesOf(const DISPPARAMS& parameters)
{
    std::vector<_variant_t> values(parameters.cArgs);
    for (UINT i = 0; i < parameters.cArgs; ++i)
    {
        VARIANT& given = parameters.rgvarg[parameters.cArgs - 1 - i];
        Require(::VariantCopyInd(&values[i], &given), L"an argument");
    }
    return values;
}

/// Runs a call and hands out its result; failures become an exception of the script's.
template <class Body>
HRESULT Answer(VARIANT* result, EXCEPINFO* exception, Body&& body) noexcept
{
    try
    {
        _variant_t value = body();
        if (result)
        {
            *result = value.Detach();
        }
        return S_OK;
    }
    catch (const CommandFailure& failure)
    {
        if (!exception)
        {
            return failure.code;
        }
        *exception = {};
        exception->scode = failure.code;
        exception->bstrSource = ::SysAllocString(L"velt");
        exception->bstrDescription = ::SysAllocString(failure.what.c_str());
        return DISP_E_EXCEPTION;
    }
    catch (...)
    {
        return HResultFromCurrentException();
    }
}

void RequireCount(std::size_t count, std::size_t least, std::size_t most)
{
    if (count < least || count > most)
    {
        throw CommandFailure{DISP_E_BADPARAMCOUNT, L"the number of arguments"};
    }
}

/// What is printed of a value; that of an object is its default value.
std::wstring EchoText(const _variant_t& value)
{
    const bool noObject = (value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN) && !value.punkVal;
    return value.vt == VT_NULL || noObject ? L"null" : VariantText(value);
}

IUnknown* ObjectOf(const _variant_t& value)
{
    if (value.vt != VT_DISPATCH && value.vt != VT_UNKNOWN)
    {
        throw CommandFailure{DISP_E_TYPEMISMATCH, L"not an object"};
    }
    return value.punkVal;
}
} // namespace

_variant_t ScriptObject::Arguments::At(const _variant_t& index) const
{
    const long at = VariantNumber(index);
    if (at < 0 || static_cast<std::size_t>(at) >= m_values.size())
    {
        throw CommandFailure{DISP_E_BADINDEX, L"no such argument"};
    }
    return {m_values[static_cast<std::size_t>(at)].c_str()};
}

STDMETHODIMP ScriptObject::Arguments::QueryInterface(REFIID iid, void** object)
{
    return QueryDispatch(this, iid, object);
}

STDMETHODIMP_(ULONG) ScriptObject::Arguments::AddRef()
{
    return 1;
}

STDMETHODIMP_(ULONG) ScriptObject::Arguments::Release()
{
    return 1;
}

STDMETHODIMP ScriptObject::Arguments::GetTypeInfoCount(UINT* count)
{
    *count = 0;
    return S_OK;
}

STDMETHODIMP ScriptObject::Arguments::GetTypeInfo(UINT, LCID, ITypeInfo** info)
{
    *info = nullptr;
    return DISP_E_BADINDEX;
}

STDMETHODIMP ScriptObject::Arguments::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                                    DISPID* ids)
{
    return FindNames(kArgumentsNames, names, count, ids);
}

STDMETHODIMP ScriptObject::Arguments::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters,
                                             VARIANT* result, EXCEPINFO* exception, UINT*)
{
    return Answer(result, exception, [&]() -> _variant_t {
        const auto values = ValuesOf(*parameters);
        switch (id)
        {
        case kItem:
            RequireCount(values.size(), 1, 1);
            return At(values[0]);
        case kCount:
        case kLength:
            return {static_cast<long>(m_values.size())};
        default:
            throw CommandFailure{DISP_E_MEMBERNOTFOUND, L"no such member"};
        }
    });
}

ScriptObject::ScriptObject(ScriptHost& host, const CommandContext& context,
                           const Interrupt& interrupt, ScriptEvents& events, std::wstring file,
                           std::vector<std::wstring> arguments)
    : m_host(host),
      m_context(context),
      m_interrupt(interrupt),
      m_events(events),
      m_file(std::move(file)),
      m_arguments(std::move(arguments))
{
}

STDMETHODIMP ScriptObject::QueryInterface(REFIID iid, void** object)
{
    return QueryDispatch(this, iid, object);
}

STDMETHODIMP_(ULONG) ScriptObject::AddRef()
{
    return 1;
}

STDMETHODIMP_(ULONG) ScriptObject::Release()
{
    return 1;
}

STDMETHODIMP ScriptObject::GetTypeInfoCount(UINT* count)
{
    *count = 0;
    return S_OK;
}

STDMETHODIMP ScriptObject::GetTypeInfo(UINT, LCID, ITypeInfo** info)
{
    *info = nullptr;
    return DISP_E_BADINDEX;
}

STDMETHODIMP ScriptObject::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids)
{
    return FindNames(kNames, names, count, ids);
}

STDMETHODIMP ScriptObject::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters,
                                  VARIANT* result, EXCEPINFO* exception, UINT*)
{
    const HRESULT hr = Answer(result, exception, [&] { return Call(id, ValuesOf(*parameters)); });
    return SUCCEEDED(hr) && m_host.QuitCode() ? E_ABORT : hr; // ends the script
}

_variant_t ScriptObject::Call(DISPID id, Values values)
{
    switch (id)
    {
    case kArguments:
        return GetArguments(values);
    case kConnectObject:
        ConnectObject(values);
        return {};
    case kCreateObject:
        return CreateObject(values);
    case kDisconnectObject:
        RequireCount(values.size(), 1, 1);
        m_events.Disconnect(ObjectOf(values[0]));
        return {};
    case kEcho:
        Echo(values);
        return {};
    case kQuit:
        RequireCount(values.size(), 0, 1);
        m_host.Quit(values.empty() ? 0 : static_cast<int>(VariantNumber(values[0])));
        return {};
    case kScriptFullName:
        return {m_file.c_str()};
    case kScriptName:
        return {m_file.substr(m_file.rfind(L'\\') + 1).c_str()};
    case kSleep:
        Sleep(values);
        return {};
    default:
        throw CommandFailure{DISP_E_MEMBERNOTFOUND, L"no such member"};
    }
}

_variant_t ScriptObject::GetArguments(Values values)
{
    RequireCount(values.size(), 0, 1);
    return values.empty() ? _variant_t(static_cast<IDispatch*>(&m_arguments))
                          : m_arguments.At(values[0]);
}

void ScriptObject::ConnectObject(Values values)
{
    RequireCount(values.size(), 2, 2);
    m_events.Connect(ObjectOf(values[0]), VariantText(values[1]));
}

_variant_t ScriptObject::CreateObject(Values values)
{
    RequireCount(values.size(), 1, 2);
    const std::wstring progId = VariantText(values[0]);
    CLSID clsid{};
    ComPtr<IDispatch> object;
    Require(::CLSIDFromProgID(progId.c_str(), &clsid), progId.c_str());
    Require(::CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_PPV_ARGS(&object)), progId.c_str());
    if (values.size() == 2)
    {
        m_events.Connect(object.Get(), VariantText(values[1]));
    }
    return {object.Get()};
}

void ScriptObject::Echo(Values values)
{
    std::wstring line;
    for (const _variant_t& value : values)
    {
        line.append(&value == values.data() ? L"" : L" ").append(EchoText(value));
    }
    std::string text = Utf8FromWide(line);
    if (m_context.IsJson())
    {
        m_lines.push_back(std::move(text));
    }
    else
    {
        m_context.Line(text);
    }
}

void ScriptObject::Sleep(Values values) const
{
    RequireCount(values.size(), 1, 1);
    const long periodMs = std::max(VariantNumber(values[0]), 0L);
    WaitWithMessages([&] { return m_host.QuitCode().has_value(); }, m_interrupt.Event(),
                     static_cast<DWORD>(periodMs));
    if (m_interrupt.IsSet())
    {
        throw CommandFailure{HRESULT_FROM_WIN32(ERROR_CANCELLED), L"interrupted"};
    }
}
} // namespace velt::tool
