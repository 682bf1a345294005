#pragma once

#include <windows.h>

#include <msxml.h>
#include <wrl/client.h>

#include <functional>
#include <stdexcept>
#include <utility>

namespace velt::test
{
/// The system's XML document object for the calling thread, until the end of the scope: a class
/// object that takes its place there. Its one document loads as the test says.
class StandInDocument
{
public:
    /// `readyState` answers how far the document is, each time that is asked. `content` is what it
    /// holds in the end; null for nothing. Throws std::runtime_error when it cannot be registered.
    explicit StandInDocument(std::function<LONG()> readyState, IXMLDOMDocument* content = nullptr)
        : m_document(std::move(readyState), content),
          m_factory(m_document)
    {
        if (FAILED(::CoRegisterClassObject(CLSID_DOMDocument, &m_factory, CLSCTX_INPROC_SERVER,
                                           REGCLS_MULTIPLEUSE, &m_registration)))
        {
            throw std::runtime_error("the stand-in document cannot be registered");
        }
    }

    StandInDocument(const StandInDocument&) = delete;
    StandInDocument& operator=(const StandInDocument&) = delete;

    ~StandInDocument()
    {
        ::CoRevokeClassObject(m_registration);
    }

    int Loads() const noexcept
    {
        return m_document.loads;
    }

    int Aborts() const noexcept
    {
        return m_document.aborts;
    }

    /// References that have not been given back.
    LONG References() const noexcept
    {
        return m_document.references;
    }

private:
    struct Document final : public IXMLDOMDocument
    {
        Document(std::function<LONG()> state, IXMLDOMDocument* held)
            : readyState(std::move(state)),
              content(held)
        {
        }

        STDMETHODIMP QueryInterface(REFIID iid, void** object) override
        {
            const bool known = iid == IID_IUnknown || iid == IID_IXMLDOMDocument;
            *object = known ? this : nullptr;
            references += known ? 1 : 0;
            return known ? S_OK : E_NOINTERFACE;
        }

        STDMETHODIMP_(ULONG) AddRef() override
        {
            return static_cast<ULONG>(++references);
        }

        STDMETHODIMP_(ULONG) Release() override
        {
            return static_cast<ULONG>(--references);
        }

        STDMETHODIMP load(VARIANT, VARIANT_BOOL* loaded) override
        {
            ++loads;
            *loaded = VARIANT_TRUE;
            return S_OK;
        }

        STDMETHODIMP get_readyState(LONG* state) override
        {
            *state = readyState();
            return S_OK;
        }

        STDMETHODIMP abort() override
        {
            ++aborts;
            content.Reset(); // the system's empties itself, too
            return S_OK;
        }

        STDMETHODIMP get_documentElement(IXMLDOMElement** root) override
        {
            *root = nullptr;
            return content ? content->get_documentElement(root) : S_FALSE;
        }

        // clang-format off: what nobody asks of it
        STDMETHODIMP GetTypeInfoCount(UINT*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                            UINT*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_nodeName(BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_nodeValue(VARIANT*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_nodeValue(VARIANT) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_nodeType(DOMNodeType*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_parentNode(IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_childNodes(IXMLDOMNodeList**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_firstChild(IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_lastChild(IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_previousSibling(IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_nextSibling(IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_attributes(IXMLDOMNamedNodeMap**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP insertBefore(IXMLDOMNode*, VARIANT, IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP replaceChild(IXMLDOMNode*, IXMLDOMNode*, IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP removeChild(IXMLDOMNode*, IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP appendChild(IXMLDOMNode*, IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP hasChildNodes(VARIANT_BOOL*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_ownerDocument(IXMLDOMDocument**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP cloneNode(VARIANT_BOOL, IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_nodeTypeString(BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_text(BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_text(BSTR) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_specified(VARIANT_BOOL*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_definition(IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_nodeTypedValue(VARIANT*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_nodeTypedValue(VARIANT) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_dataType(VARIANT*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_dataType(BSTR) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_xml(BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP transformNode(IXMLDOMNode*, BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP selectNodes(BSTR, IXMLDOMNodeList**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP selectSingleNode(BSTR, IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_parsed(VARIANT_BOOL*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_namespaceURI(BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_prefix(BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_baseName(BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP transformNodeToObject(IXMLDOMNode*, VARIANT) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_doctype(IXMLDOMDocumentType**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_implementation(IXMLDOMImplementation**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP putref_documentElement(IXMLDOMElement*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createElement(BSTR, IXMLDOMElement**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createDocumentFragment(IXMLDOMDocumentFragment**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createTextNode(BSTR, IXMLDOMText**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createComment(BSTR, IXMLDOMComment**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createCDATASection(BSTR, IXMLDOMCDATASection**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createProcessingInstruction(BSTR, BSTR,
                                                 IXMLDOMProcessingInstruction**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createAttribute(BSTR, IXMLDOMAttribute**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createEntityReference(BSTR, IXMLDOMEntityReference**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP getElementsByTagName(BSTR, IXMLDOMNodeList**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP createNode(VARIANT, BSTR, BSTR, IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP nodeFromID(BSTR, IXMLDOMNode**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_parseError(IXMLDOMParseError**) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_url(BSTR*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_async(VARIANT_BOOL*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_async(VARIANT_BOOL) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP loadXML(BSTR, VARIANT_BOOL*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP save(VARIANT) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_validateOnParse(VARIANT_BOOL*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_validateOnParse(VARIANT_BOOL) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_resolveExternals(VARIANT_BOOL*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_resolveExternals(VARIANT_BOOL) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP get_preserveWhiteSpace(VARIANT_BOOL*) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_preserveWhiteSpace(VARIANT_BOOL) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_onreadystatechange(VARIANT) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_ondataavailable(VARIANT) override
        {
            return E_NOTIMPL;
        }
        STDMETHODIMP put_ontransformnode(VARIANT) override
        {
            return E_NOTIMPL;
        }
        // clang-format on

        std::function<LONG()> readyState;
        Microsoft::WRL::ComPtr<IXMLDOMDocument> content;
        int loads = 0;
        int aborts = 0;
        LONG references = 0;
    };

    struct Factory final : public IClassFactory
    {
        explicit Factory(Document& made) : document(made) {}

        STDMETHODIMP QueryInterface(REFIID iid, void** object) override
        {
            const bool known = iid == IID_IUnknown || iid == IID_IClassFactory;
            *object = known ? this : nullptr;
            return known ? S_OK : E_NOINTERFACE;
        }

        STDMETHODIMP_(ULONG) AddRef() override
        {
            return 2; // the stand-in owns it
        }

        STDMETHODIMP_(ULONG) Release() override
        {
            return 1;
        }

        STDMETHODIMP CreateInstance(IUnknown*, REFIID iid, void** object) override
        {
            return document.QueryInterface(iid, object);
        }

        STDMETHODIMP LockServer(BOOL) override
        {
            return S_OK;
        }

        Document& document;
    };

    Document m_document;
    Factory m_factory;
    DWORD m_registration = 0;
};
} // namespace velt::test
