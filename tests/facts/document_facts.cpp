// Questions about XML documents and scripts.

#include "foundation/unique_handle.h"
#include "tests/facts/fact.h"
#include "tests/support/com_apartment.h"
#include "tests/support/http_server.h"
#include "tests/support/script_host.h"

#include <windows.h>

#include <comdef.h>
#include <msxml.h>
#include <wrl/client.h>

namespace velt::facts
{
namespace
{
using Microsoft::WRL::ComPtr;

/// How a document with its settings at their defaults takes what it is told to load.
struct Loaded
{
    bool done = false;
    std::wstring text; // of its root
};

Loaded Load(const std::wstring& what)
{
    Loaded loaded;
    ComPtr<IXMLDOMDocument> document;
    Need(SUCCEEDED(::CoCreateInstance(CLSID_DOMDocument, nullptr, CLSCTX_ALL, IID_IXMLDOMDocument,
                                      reinterpret_cast<void**>(document.GetAddressOf()))),
         "no document");
    VARIANT_BOOL success = VARIANT_FALSE;
    if (document->load(_variant_t(what.c_str()), &success) != S_OK || !success)
    {
        return loaded;
    }
    LONG state = 0;
    const ULONGLONG end = ::GetTickCount64() + 20000;
    while (SUCCEEDED(document->get_readyState(&state)) && state != 4 && ::GetTickCount64() < end)
    {
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            ::DispatchMessageW(&message);
        }
    }
    ComPtr<IXMLDOMElement> root;
    if (document->get_documentElement(&root) == S_OK)
    {
        loaded.done = true;
        BSTR text = nullptr;
        root->get_text(&text);
        loaded.text = text ? text : L"";
        ::SysFreeString(text);
    }
    return loaded;
}

std::string ExternalDtd()
{
    const test::ComApartment apartment;
    test::HttpServer server(test::HttpAnswer("200 OK", "<!ELEMENT r ANY>"));
    WriteBytes(L"t.xml", "<!DOCTYPE r SYSTEM \"http://127.0.0.1:" + std::to_string(server.Port()) +
                             "/t.dtd\"><r>x</r>");
    const Loaded loaded = Load(FullPath(L"t.xml"));
    return std::string(loaded.done ? "loaded" : "refused") +
           (server.Requests().empty() ? ", not fetched" : ", fetched");
}

std::string ExternalEntity()
{
    const test::ComApartment apartment;
    WriteBytes(L"other.txt", "secret");
    WriteBytes(L"t.xml", "<!DOCTYPE r [<!ENTITY e SYSTEM \"other.txt\">]><r>a&e;b</r>");
    const Loaded loaded = Load(FullPath(L"t.xml"));
    return !loaded.done
               ? "refused"
               : Choose(loaded.text.find(L"secret") != std::wstring::npos, "read", "not read");
}

std::string InternalEntity()
{
    const test::ComApartment apartment;
    WriteBytes(L"t.xml", "<!DOCTYPE r [<!ENTITY e \"text\">]><r>a&e;b</r>");
    const Loaded loaded = Load(FullPath(L"t.xml"));
    return !loaded.done ? "refused" : Choose(loaded.text == L"atextb", "expanded", "not expanded");
}

std::string NestedEntities()
{
    // A hundred thousand times its last text: little for a machine, and much for a limit.
    const test::ComApartment apartment;
    std::string document = "<!DOCTYPE r [<!ENTITY e0 \"0123456789\">";
    for (char level = '1'; level <= '5'; ++level)
    {
        const std::string inner = std::string("&e") + static_cast<char>(level - 1) + ";";
        document += std::string("<!ENTITY e") + level + " \"";
        for (int i = 0; i < 10; ++i)
        {
            document += inner;
        }
        document += "\">";
    }
    WriteBytes(L"t.xml", document + "]><r>&e5;</r>");
    const Loaded loaded = Load(FullPath(L"t.xml"));
    return !loaded.done ? "refused"
                        : Choose(loaded.text.size() >= 1'000'000, "expanded", "not expanded");
}

std::string UrlForPath()
{
    const test::ComApartment apartment;
    test::HttpServer server(test::HttpAnswer("200 OK", "<r>x</r>", "Content-Type: text/xml\r\n"));
    const Loaded loaded = Load(L"http://127.0.0.1:" + std::to_wstring(server.Port()) + L"/t.xml");
    return std::string(server.Requests().empty() ? "not fetched" : "fetched") +
           (loaded.done ? ", loaded" : ", refused");
}

std::string FileUrlForPath()
{
    const test::ComApartment apartment;
    WriteBytes(L"t.xml", "<r>x</r>");
    std::wstring url = L"file:///" + FullPath(L"t.xml");
    for (wchar_t& c : url)
    {
        c = c == L'\\' ? L'/' : c;
    }
    return Choose(Load(url).done, "loaded", "refused");
}

/// An object for scripts: notes how its members are asked for.
class Listed final : public IDispatch
{
public:
    Listed() = default;
    Listed(const Listed&) = delete;
    Listed& operator=(const Listed&) = delete;

    WORD EnumerationKind() const noexcept
    {
        return m_enumerationKind;
    }

    LONG References() const noexcept
    {
        return m_references;
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool known = iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IEnumVARIANT;
        *object = known && iid != IID_IEnumVARIANT ? this : nullptr;
        if (*object)
        {
            AddRef();
        }
        return *object ? S_OK : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return static_cast<ULONG>(::InterlockedDecrement(&m_references));
    }

    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }

    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override
    {
        return E_NOTIMPL;
    }

    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        for (UINT i = 0; i < count; ++i)
        {
            ids[i] = DISPID_UNKNOWN;
        }
        if (::_wcsicmp(names[0], L"Fail") == 0)
        {
            ids[0] = 1;
            return S_OK;
        }
        return DISP_E_UNKNOWNNAME;
    }

    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD kind, DISPPARAMS* arguments, VARIANT* result,
                        EXCEPINFO*, UINT*) override
    {
        if (id == DISPID_NEWENUM)
        {
            m_enumerationKind = kind;
            return E_FAIL;
        }
        if (id == 1)
        {
            return E_INVALIDARG;
        }
        if (id == DISPID_VALUE && result)
        {
            ::VariantInit(result);
            result->vt = VT_I4;
            result->lVal = static_cast<LONG>(arguments->cArgs);
            return S_OK;
        }
        return DISP_E_MEMBERNOTFOUND;
    }

private:
    LONG m_references = 1;
    WORD m_enumerationKind = 0;
};

std::string EnumeratorKind()
{
    const test::ComApartment apartment;
    Listed object;
    test::ScriptHost host(L"JScript");
    host.AddObject(L"list", &object);
    host.Run(L"var e = new Enumerator(list);");
    const WORD kind = object.EnumerationKind();
    return kind == 0 ? "not asked for"
                     : Choose((kind & DISPATCH_METHOD) && (kind & DISPATCH_PROPERTYGET),
                              "method and property", "one kind alone");
}

std::string NamedItemCall()
{
    const test::ComApartment apartment;
    Listed object;
    test::ScriptHost host(L"JScript");
    host.AddObject(L"list", &object);
    const test::ScriptError error = host.Run(L"var x = list(1);");
    return error.code == S_OK ? "its default value" : Hex(error.code);
}

std::string VbErrorNumber()
{
    const test::ComApartment apartment;
    Listed object;
    test::ScriptHost host(L"VBScript");
    host.AddObject(L"list", &object);
    host.Run(L"On Error Resume Next\r\nlist.Fail\r\nnumber = Hex(Err.Number)");
    const std::wstring number = host.Value(L"number");
    return "0x" + std::string(number.begin(), number.end());
}

std::string VbChrW()
{
    const test::ComApartment apartment;
    test::ScriptHost host(L"VBScript");
    return Choose(host.Run(L"x = ChrW(65)").code == S_OK, "there", "missing");
}

std::string DictionaryNumbers()
{
    const test::ComApartment apartment;
    test::ScriptHost host(L"JScript");
    host.Run(L"var d = new ActiveXObject('Scripting.Dictionary'); var twice = 0;"
             L"for (var i = 0; i < 5000; ++i) { if (d.Exists(i)) ++twice; else d.Add(i, 0); }");
    const std::wstring twice = host.Value(L"twice");
    return Choose(twice == L"0", "all different", "some taken for one");
}

std::string SystemEnclosure()
{
    const test::ComApartment apartment;
    test::ScriptHost host(L"JScript");
    const test::ScriptError error =
        host.Run(L"var found = 0; var e = new Enumerator(GetObject('winmgmts:')"
                 L".ExecQuery('SELECT SerialNumber FROM Win32_SystemEnclosure'));"
                 L"for (; !e.atEnd(); e.moveNext()) if (e.item().SerialNumber != null) ++found;");
    if (error.code != S_OK)
    {
        return Hex(error.code);
    }
    return Choose(host.Value(L"found") != L"0", "has a number", "has none");
}

DWORD RunScript(const char* text)
{
    WriteBytes(L"script.js", text);
    std::wstring command = L"cscript.exe //Nologo script.js";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    Need(::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process),
         "no script host");
    const UniqueKernelObject handle(process.hProcess);
    const UniqueKernelObject thread(process.hThread);
    ::WaitForSingleObject(handle.Get(), INFINITE);
    DWORD exitCode = 0;
    ::GetExitCodeProcess(handle.Get(), &exitCode);
    return exitCode;
}

std::string UncaughtError()
{
    return RunScript("throw new Error(1, 'thrown');") == 0 ? "ends with 0" : "ends with an error";
}

std::string EventsOfScripts()
{
    const DWORD code = RunScript(
        "var code = 5; try { var d = WScript.CreateObject('Msxml2.DOMDocument.3.0', 'd_'); "
        "code = 6; } catch (e) {} WScript.Quit(code);");
    return code == 6 ? "connected" : code == 5 ? "not supported" : ErrorNumber(code);
}

constexpr Fact kFacts[] = {
    {"document.external-dtd", &ExternalDtd},
    {"document.external-entity", &ExternalEntity},
    {"document.internal-entity", &InternalEntity},
    {"document.nested-entities", &NestedEntities},
    {"document.url-for-path", &UrlForPath},
    {"document.file-url-for-path", &FileUrlForPath},
    {"script.enumerator", &EnumeratorKind},
    {"script.named-item-call", &NamedItemCall},
    {"script.vbscript-error", &VbErrorNumber},
    {"script.vbscript-chrw", &VbChrW},
    {"script.dictionary-numbers", &DictionaryNumbers},
    {"script.system-enclosure", &SystemEnclosure},
    {"script.uncaught-error", &UncaughtError},
    {"script.events", &EventsOfScripts},
};
} // namespace

std::span<const Fact> DocumentFacts()
{
    return kFacts;
}
} // namespace velt::facts
