#include "ui/eula_texts_file.h"

#include "foundation/utrace.h"
#include "ui/message_wait.h"

#include <comdef.h>
#include <msxml.h>
#include <wrl/client.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace velt
{
namespace
{
using Microsoft::WRL::ComPtr;

constexpr DWORD kLoadLimitMs = 5000;
constexpr LONG kComplete = 4; // READYSTATE_COMPLETE; a failed load ends with it as well

std::wstring_view ViewOf(const _bstr_t& text)
{
    return {static_cast<const wchar_t*>(text), text.length()};
}

/// A string that a COM call has handed out becomes an owned one.
_bstr_t Owned(BSTR text)
{
    return {text, false};
}

/// Whether the document would take a path for a URL: one with a scheme, which is more than the one
/// letter of a drive. Blanks and control characters before it count for nothing, as to the system.
bool IsUrl(std::wstring_view path)
{
    const auto isLetter = [](wchar_t c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    };
    const auto isOfScheme = [&](wchar_t c) {
        return isLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    };
    const auto start = std::find_if(path.begin(), path.end(), [](wchar_t c) { return c > ' '; });
    const auto end = std::find_if_not(start, path.end(), isOfScheme);
    return end != path.end() && *end == ':' && end - start > 1 && isLetter(*start);
}

/// A document that has begun to load, or null.
ComPtr<IXMLDOMDocument> StartLoading(const std::wstring& path)
{
    if (IsUrl(path))
    {
        UTrace::TraceLevel1("the path of the texts is a URL");
        return {};
    }
    ComPtr<IXMLDOMDocument> document;
    HRESULT hr = ::CoCreateInstance(CLSID_DOMDocument, nullptr, CLSCTX_ALL, IID_IXMLDOMDocument,
                                    reinterpret_cast<void**>(document.GetAddressOf()));
    if (FAILED(hr))
    {
        UTrace::TraceLevel1("no XML document object: 0x%08lX", static_cast<unsigned long>(hr));
        return {};
    }
    VARIANT_BOOL loaded = VARIANT_FALSE;
    hr = document->load(_variant_t(path.c_str()), &loaded);
    if (hr != S_OK || loaded == VARIANT_FALSE)
    {
        UTrace::TraceLevel1("the texts cannot be loaded: 0x%08lX", static_cast<unsigned long>(hr));
        return {};
    }
    return document;
}

WaitEnd WaitForDocument(IXMLDOMDocument& document, HWND dialog, const std::function<bool()>& isOver)
{
    const auto isDone = [&] {
        LONG state = 0;
        return isOver() || FAILED(document.get_readyState(&state)) || state == kComplete;
    };
    const WaitEnd end = WaitWithMessages(dialog, kLoadLimitMs, isDone);
    return isOver() ? WaitEnd::kGivenUp : end;
}

bool IsRecord(IXMLDOMNode& node)
{
    DOMNodeType type = NODE_INVALID;
    BSTR name = nullptr;
    if (node.get_nodeType(&type) != S_OK || type != NODE_ELEMENT ||
        node.get_nodeName(&name) != S_OK)
    {
        return false;
    }
    return ViewOf(Owned(name)) == L"RECORD";
}

std::wstring TextOf(IXMLDOMNode& node)
{
    BSTR text = nullptr;
    return node.get_text(&text) == S_OK ? std::wstring(ViewOf(Owned(text))) : std::wstring();
}

void PutRecord(IXMLDOMNode& record, EulaTexts& texts)
{
    ComPtr<IXMLDOMNode> key;
    ComPtr<IXMLDOMNode> value;
    if (record.get_firstChild(&key) == S_OK && record.get_lastChild(&value) == S_OK)
    {
        texts.Put(TextOf(*key.Get()), TextOf(*value.Get()));
    }
}

/// As far as the document has come.
EulaTexts ReadRecords(IXMLDOMDocument& document)
{
    EulaTexts texts;
    ComPtr<IXMLDOMElement> root;
    if (document.get_documentElement(&root) != S_OK)
    {
        return texts; // also what is not well-formed has no root
    }
    // From sibling to sibling: asking the list of children for an index walks it from its start.
    ComPtr<IXMLDOMNode> node;
    HRESULT hr = root->get_firstChild(&node);
    while (hr == S_OK)
    {
        if (IsRecord(*node.Get()))
        {
            PutRecord(*node.Get(), texts);
        }
        ComPtr<IXMLDOMNode> next;
        hr = node->get_nextSibling(&next);
        node = std::move(next);
    }
    return texts;
}
} // namespace

EulaTexts ReadEulaTexts(const std::wstring& path, HWND dialog, const std::function<bool()>& isOver)
{
    const ComPtr<IXMLDOMDocument> document = StartLoading(path);
    if (!document)
    {
        return {};
    }
    const WaitEnd end = WaitForDocument(*document.Get(), dialog, isOver);
    EulaTexts texts = end == WaitEnd::kGivenUp ? EulaTexts() : ReadRecords(*document.Get());
    if (end != WaitEnd::kDone)
    {
        UTrace::TraceLevel1("the texts have not been waited for");
        document->abort(); // after the reading: it empties the document
    }
    return texts;
}
} // namespace velt
