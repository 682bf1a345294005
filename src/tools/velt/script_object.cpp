#include "tools/velt/script_object.h"

#include "foundation/velt_version.h"
#include "foundation/wide_text.h"
#include "server/registration.h"
#include "tools/velt/message_wait.h"
#include "tools/velt/variant_text.h"

#include <algorithm>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
enum MemberId : DISPID
{
    kApplication = 1,
    kArguments,
    kConnectObject,
    kCreateObject,
    kDisconnectObject,
    kEcho,
    kFullName,
    kName,
    kPath,
    kQuit,
    kScriptFullName,
    kScriptName,
    kSleep,
    kStdErr,
    kStdIn,
    kStdOut,
    kVersion,
};

using Kind = ScriptMemberKind;
constexpr std::size_t kMostValues = 1'000'000; // of Echo: more than engines pass
constexpr ScriptMember kMembers[] = {
    {L"Application", kApplication, Kind::object, 0, 0},
    {L"Arguments", kArguments, Kind::object, 0, 0},
    {L"ConnectObject", kConnectObject, Kind::method, 2, 2},
    {L"CreateObject", kCreateObject, Kind::method, 1, 2},
    {L"DisconnectObject", kDisconnectObject, Kind::method, 1, 1},
    {L"Echo", kEcho, Kind::method, 0, kMostValues},
    {L"FullName", kFullName, Kind::property, 0, 0},
    {L"Name", kName, Kind::property, 0, 0},
    {L"Path", kPath, Kind::property, 0, 0},
    {L"Quit", kQuit, Kind::method, 0, 1},
    {L"ScriptFullName", kScriptFullName, Kind::property, 0, 0},
    {L"ScriptName", kScriptName, Kind::property, 0, 0},
    {L"Sleep", kSleep, Kind::method, 1, 1},
    {L"StdErr", kStdErr, Kind::object, 0, 0},
    {L"StdIn", kStdIn, Kind::object, 0, 0},
    {L"StdOut", kStdOut, Kind::object, 0, 0},
    {L"Version", kVersion, Kind::property, 0, 0},
};

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
/// The part of a path behind its last backslash, and the one before it.
std::wstring NameIn(const std::wstring& path)
{
    return path.substr(path.rfind(L'\\') + 1);
}

std::wstring FolderOf(const std::wstring& path)
{
    return path.substr(0, path.rfind(L'\\'));
}

_variant_t Text(const std::wstring& text)
{
    return {text.c_str()};
}
} // namespace

void KeptLines::Write(std::string_view text)
{
    while (!text.empty())
    {
        const std::size_t end = std::min(text.find('\n'), text.size());
        if (!m_open)
        {
            m_lines.emplace_back();
        }
        m_lines.back().append(text.substr(0, end));
        m_open = end == text.size();
        text.remove_prefix(m_open ? end : end + 1);
    }
}

void KeptLines::WriteLine(std::string_view text)
{
    if (!m_open)
    {
        m_lines.emplace_back();
    }
    m_lines.back().append(text);
    m_open = false;
}

ScriptObject::ScriptObject(ScriptHost& host, const CommandContext& context,
                           const Interrupt& interrupt, const Component& component,
                           ScriptEvents& events, std::wstring file,
                           const std::vector<std::wstring>& arguments)
    : ScriptDispatch(kMembers),
      m_host(host),
      m_context(context),
      m_interrupt(interrupt),
      m_events(events),
      m_file(std::move(file)),
      m_arguments(component, arguments),
      m_output([this](std::string_view text) { Print(text); }),
      m_messages([this](std::string_view text) { m_context.Messages().Write(text); })
{
}

ScriptObject::~ScriptObject()
{
    m_host.Close();
}

HRESULT ScriptObject::AfterCall() const noexcept
{
    return m_host.QuitCode() ? E_ABORT : S_OK;
}

_variant_t ScriptObject::Call(DISPID id, Values values)
{
    const auto object = [](IDispatch& dispatch) { return _variant_t(&dispatch); };
    switch (id)
    {
    case kApplication:
        return object(*this);
    case kArguments:
        return object(m_arguments);
    case kConnectObject:
        ConnectObject(values);
        return {};
    case kCreateObject:
        return CreateObject(values);
    case kDisconnectObject:
        m_events.Disconnect(ObjectOf(values[0]));
        return {};
    case kEcho:
        Echo(values);
        return {};
    case kFullName:
        return Text(ModulePath(nullptr));
    case kName:
        return Text(L"velt");
    case kPath:
        return Text(FolderOf(ModulePath(nullptr)));
    case kQuit:
        m_host.Quit(values.empty() ? 0 : static_cast<int>(VariantNumber(values[0])));
        return {};
    case kScriptFullName:
        return Text(m_file);
    case kScriptName:
        return Text(NameIn(m_file));
    case kSleep:
        Sleep(values);
        return {};
    case kStdErr:
        return object(m_messages);
    case kStdIn:
        return object(m_input);
    case kStdOut:
        return object(m_output);
    default:
        return Text(WideFromUtf8(VELT_VERSION_TEXT));
    }
}

void ScriptObject::ConnectObject(Values values)
{
    m_events.Connect(ObjectOf(values[0]), VariantText(values[1]));
}

_variant_t ScriptObject::CreateObject(Values values)
{
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
    const std::string text = Utf8FromWide(line);
    if (m_context.IsJson())
    {
        m_kept.WriteLine(text);
    }
    else
    {
        m_context.Line(text);
    }
}

void ScriptObject::Print(std::string_view text)
{
    if (m_context.IsJson())
    {
        m_kept.Write(text);
    }
    else
    {
        m_context.Output().Write(text);
    }
}

void ScriptObject::Sleep(Values values) const
{
    const long periodMs = std::max(VariantNumber(values[0]), 0L);
    WaitWithMessages([&] { return m_host.QuitCode().has_value(); }, m_interrupt.Event(),
                     static_cast<DWORD>(periodMs));
    if (m_interrupt.IsSet())
    {
        throw CommandFailure{HRESULT_FROM_WIN32(ERROR_CANCELLED), L"interrupted"};
    }
}
} // namespace velt::tool
