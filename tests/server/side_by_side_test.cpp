// The shipped side-by-side manifest: what it says is what the type library, the class table and the
// registrar scripts say, and the system makes objects by it.

#include "foundation/wide_text.h"
#include "server/class_table.h"
#include "server/registrar_script.h"
#include "tests/support/activation_context.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"
#include "tests/support/test_thread.h"
#include "tests/support/version_block.h"

#include <provider_lib.h>

#include <comutil.h>
#include <msxml.h>
#include <objbase.h>
#include <wrl/client.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using velt::test::ActivationContext;
using velt::test::ComApartment;
using velt::test::ShippedFile;

namespace
{
constexpr wchar_t kManifest[] = L"VeltHTTPClient12OEM.Assembly.manifest";
constexpr wchar_t kLibrary[] = L"VeltHTTPClient12OEM.dll";
constexpr wchar_t kAutomationMarshaler[] = L"{00020424-0000-0000-C000-000000000046}";
constexpr wchar_t kDispatchMarshaler[] = L"{00020420-0000-0000-C000-000000000046}";

using Attributes = std::map<std::wstring, std::wstring>;

std::wstring CopyOf(BSTR text)
{
    return {text ? text : L"", ::SysStringLen(text)};
}

std::wstring GuidText(REFGUID guid)
{
    wchar_t text[39];
    ::StringFromGUID2(guid, text, 39);
    return text;
}

/// The manifest, read by the system's XML document object.
class Manifest
{
public:
    Manifest()
    {
        REQUIRE(::CoCreateInstance(CLSID_DOMDocument, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IXMLDOMDocument, &m_document) == S_OK);
        REQUIRE(m_document->put_async(VARIANT_FALSE) == S_OK);
        VARIANT_BOOL loaded = VARIANT_FALSE;
        REQUIRE(m_document->load(_variant_t(ShippedFile(kManifest).c_str()), &loaded) == S_OK);
        REQUIRE(loaded == VARIANT_TRUE);
    }

    /// The elements of a name, in their order.
    std::vector<ComPtr<IXMLDOMElement>> Elements(const wchar_t* name) const
    {
        ComPtr<IXMLDOMNodeList> nodes;
        REQUIRE(m_document->getElementsByTagName(_bstr_t(name), &nodes) == S_OK);
        std::vector<ComPtr<IXMLDOMElement>> elements;
        ComPtr<IXMLDOMNode> node;
        while (nodes->nextNode(node.ReleaseAndGetAddressOf()) == S_OK)
        {
            ComPtr<IXMLDOMElement> element;
            REQUIRE(node->QueryInterface(IID_IXMLDOMElement, &element) == S_OK);
            elements.push_back(element);
        }
        return elements;
    }

private:
    ComPtr<IXMLDOMDocument> m_document;
};

Attributes AttributesOf(IXMLDOMElement& element)
{
    ComPtr<IXMLDOMNamedNodeMap> map;
    REQUIRE(element.get_attributes(&map) == S_OK);
    Attributes attributes;
    ComPtr<IXMLDOMNode> node;
    while (map->nextNode(node.ReleaseAndGetAddressOf()) == S_OK)
    {
        _bstr_t name;
        _bstr_t value;
        REQUIRE(node->get_nodeName(name.GetAddress()) == S_OK);
        REQUIRE(node->get_text(value.GetAddress()) == S_OK);
        attributes[CopyOf(name)] = CopyOf(value);
    }
    return attributes;
}

/// What a class's registrar script writes: ProgIDs, the versioned one first, and the description.
struct RegisteredClass
{
    std::wstring progId;
    std::wstring versionIndependentProgId;
    std::wstring description;
};

RegisteredClass ReadScript(const velt::ClassRow& row)
{
    const HMODULE module = ::GetModuleHandleW(nullptr); // has the library's resources too
    const HRSRC found =
        ::FindResourceW(module, MAKEINTRESOURCEW(row.registration.script), L"REGISTRY");
    REQUIRE(found);
    const std::string script(
        static_cast<const char*>(::LockResource(::LoadResource(module, found))),
        ::SizeofResource(module, found));
    const auto result = velt::ParseRegistrarScript(velt::WideFromUtf8(script),
                                                   {{L"MODULE", L"M"}, {L"THREADINGMODEL", L"T"}});
    RegisteredClass read;
    for (const auto& operation : std::get<std::vector<velt::RegistryOperation>>(result))
    {
        const std::wstring* const value = std::get_if<std::wstring>(&operation.value);
        if (operation.kind != velt::RegistryOperation::Kind::setValue || !value)
        {
            continue;
        }
        if (operation.path.starts_with(L"CLSID\\"))
        {
            if (operation.path.ends_with(L"}\\ProgID"))
            {
                read.progId = *value;
            }
            else if (operation.path.ends_with(L"}\\VersionIndependentProgID"))
            {
                read.versionIndependentProgId = *value;
            }
            else if (operation.path.ends_with(L"}"))
            {
                read.description = *value;
            }
        }
    }
    return read;
}

ComPtr<ITypeLib> TypeLibrary()
{
    ComPtr<ITypeLib> library;
    REQUIRE(::LoadTypeLibEx(ShippedFile(kLibrary).c_str(), REGKIND_NONE, &library) == S_OK);
    return library;
}

/// The version of a type library as a manifest writes it, "1.0", and its identifier.
std::pair<std::wstring, std::wstring> IdentityOf(ITypeLib& library)
{
    TLIBATTR* attributes = nullptr;
    REQUIRE(library.GetLibAttr(&attributes) == S_OK);
    std::pair<std::wstring, std::wstring> identity{std::to_wstring(attributes->wMajorVerNum) +
                                                       L'.' +
                                                       std::to_wstring(attributes->wMinorVerNum),
                                                   GuidText(attributes->guid)};
    library.ReleaseTLibAttr(attributes);
    return identity;
}

LONG CountOf(IEnumVariantCol& collection)
{
    LONG count = -1;
    collection.get_Count(&count);
    return count;
}
} // namespace

TEST_CASE("The manifest: its identity is no DLL's name and has the library's version", "[server]")
{
    const ComApartment apartment;
    const Manifest manifest;
    const auto identities = manifest.Elements(L"assemblyIdentity");
    REQUIRE(identities.size() == 1);
    CHECK(AttributesOf(*identities[0].Get()) ==
          Attributes{{L"type", L"win32"},
                     {L"name", L"VeltHTTPClient12OEM.Assembly"},
                     {L"version", velt::test::VersionBlock(ShippedFile(kLibrary)).Version()},
                     {L"processorArchitecture", velt::test::kEdition.architecture}});
    const auto files = manifest.Elements(L"file");
    REQUIRE(files.size() == 1);
    CHECK(AttributesOf(*files[0].Get()) == Attributes{{L"name", kLibrary}});
}

TEST_CASE("The manifest: has each class as the class table and its script have it", "[server]")
{
    const ComApartment apartment;
    const Manifest manifest;
    const std::wstring libraryId = IdentityOf(*TypeLibrary().Get()).second;
    const auto classes = manifest.Elements(L"comClass");
    REQUIRE(classes.size() == velt::kClassTable.size());
    for (std::size_t i = 0; i < classes.size(); ++i)
    {
        const velt::ClassRow& row = velt::kClassTable[i];
        const RegisteredClass registered = ReadScript(row);
        CHECK(AttributesOf(*classes[i].Get()) ==
              Attributes{{L"clsid", GuidText(*row.registration.clsid)},
                         {L"threadingModel", row.registration.threadingModel},
                         {L"progid", registered.progId},
                         {L"description", registered.description},
                         {L"tlbid", libraryId}});
        ComPtr<IXMLDOMNodeList> others;
        REQUIRE(classes[i]->getElementsByTagName(_bstr_t(L"progid"), &others) == S_OK);
        LONG count = 0;
        REQUIRE(others->get_length(&count) == S_OK);
        REQUIRE(count == 1);
        ComPtr<IXMLDOMNode> other;
        REQUIRE(others->get_item(0, &other) == S_OK);
        _bstr_t text;
        REQUIRE(other->get_text(text.GetAddress()) == S_OK);
        CHECK((CopyOf(text) == registered.versionIndependentProgId));
    }
}

TEST_CASE("The manifest: has the type library and a marshaler for each interface", "[server]")
{
    const ComApartment apartment;
    const Manifest manifest;
    const ComPtr<ITypeLib> library = TypeLibrary();
    const auto [version, id] = IdentityOf(*library.Get());
    const auto libraries = manifest.Elements(L"typelib");
    REQUIRE(libraries.size() == 1);
    CHECK(AttributesOf(*libraries[0].Get()) ==
          Attributes{{L"tlbid", id}, {L"version", version}, {L"helpdir", L""}});

    std::set<Attributes> expected;
    for (UINT i = 0; i < library->GetTypeInfoCount(); ++i)
    {
        ComPtr<ITypeInfo> info;
        REQUIRE(library->GetTypeInfo(i, &info) == S_OK);
        TYPEATTR* type = nullptr;
        REQUIRE(info->GetTypeAttr(&type) == S_OK);
        if (type->typekind == TKIND_DISPATCH || type->typekind == TKIND_INTERFACE)
        {
            _bstr_t name;
            REQUIRE(info->GetDocumentation(MEMBERID_NIL, name.GetAddress(), nullptr, nullptr,
                                           nullptr) == S_OK);
            const bool dual = (type->wTypeFlags & TYPEFLAG_FDUAL) != 0;
            expected.insert(
                {{L"name", CopyOf(name)},
                 {L"iid", GuidText(type->guid)},
                 {L"tlbid", id},
                 {L"proxyStubClsid32", dual ? kAutomationMarshaler : kDispatchMarshaler}});
        }
        info->ReleaseTypeAttr(type);
    }
    std::set<Attributes> found;
    for (const auto& element : manifest.Elements(L"comInterfaceExternalProxyStub"))
    {
        found.insert(AttributesOf(*element.Get()));
    }
    CHECK(expected.size() == 4);
    CHECK((found == expected));
}

TEST_CASE("The manifest: the classes are created by all their ProgIDs", "[server]")
{
    const ComApartment apartment;
    const ActivationContext context(ShippedFile(kManifest));
    for (const velt::ClassRow& row : velt::kClassTable)
    {
        const RegisteredClass registered = ReadScript(row);
        for (const auto& progId : {registered.progId, registered.versionIndependentProgId})
        {
            INFO(velt::Utf8FromWide(progId));
            CLSID clsid{};
            REQUIRE(::CLSIDFromProgID(progId.c_str(), &clsid) == S_OK);
            // It may be one that the system made up for the manifest; it leads to the class.
            ComPtr<IDispatch> object;
            const HRESULT hr =
                ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&object));
            CHECK(hr == (row.create ? S_OK : CLASS_E_CLASSNOTAVAILABLE));
            if (object)
            {
                ComPtr<ITypeInfo> info;
                REQUIRE(object->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info) == S_OK);
                ComPtr<ITypeLib> library;
                UINT index = 0;
                REQUIRE(info->GetContainingTypeLib(&library, &index) == S_OK);
                CHECK((IdentityOf(*library.Get()) == IdentityOf(*TypeLibrary().Get())));
            }
        }
    }
}

TEST_CASE("The manifest: another apartment reaches an object through a proxy", "[server]")
{
    // Nothing is registered: the marshaler and the type library come from the manifest.
    const ComApartment apartment;
    const ActivationContext context(ShippedFile(kManifest));
    ComPtr<IEnumVariantCol> collection;
    REQUIRE(::CoCreateInstance(CLSID_CEnumVariantCol, nullptr, CLSCTX_INPROC_SERVER,
                               IID_PPV_ARGS(&collection)) == S_OK);
    ComPtr<IStream> stream;
    REQUIRE(::CoMarshalInterThreadInterfaceInStream(__uuidof(IEnumVariantCol), collection.Get(),
                                                    &stream) == S_OK);
    struct
    {
        HRESULT unmarshal = E_FAIL;
        HRESULT add = E_FAIL;
        LONG count = -1;
        bool isProxy = false;
    } seen;
    velt::UniqueKernelObject done(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    IStream* const marshaled = stream.Detach(); // released by the call that reads it
    velt::test::TestThread client([&] {
        const ComApartment other;
        {
            const ActivationContext own(ShippedFile(kManifest));
            ComPtr<IEnumVariantCol> proxy;
            seen.unmarshal = ::CoGetInterfaceAndReleaseStream(marshaled, IID_PPV_ARGS(&proxy));
            if (proxy)
            {
                seen.isProxy = proxy.Get() != collection.Get();
                seen.add = proxy->Add(_variant_t(7L));
                seen.count = CountOf(*proxy.Get());
            }
        }
        ::SetEvent(done.Get());
    });
    DWORD index = 0;
    HANDLE handle = done.Get();
    CHECK(::CoWaitForMultipleHandles(0, velt::test::kWaitLimitMs, 1, &handle, &index) == S_OK);
    client.Join();
    CHECK(seen.unmarshal == S_OK);
    CHECK(seen.isProxy);
    CHECK(seen.add == S_OK);
    CHECK(seen.count == 1);
    CHECK(CountOf(*collection.Get()) == 1);
}
