// The type library, read back as the system's automation reads it.

#include "foundation/wide_text.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"
#include "tests/support/type_library_text.h"

#include <provider_lib.h>

#include <comutil.h>

#include <fstream>
#include <iterator>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using velt::Utf8FromWide;
using velt::test::ComponentLibrary;
using velt::test::ShippedFile;

using Lines = std::vector<std::string>;

namespace
{
constexpr GUID kLibraryId = {
    0xAB6A43CE, 0x5CEE, 0x40EE, {0x9A, 0xD0, 0xA7, 0xAA, 0x60, 0x8D, 0xBB, 0x6C}};

/// The type library from the file of its own or out of the DLL.
ComPtr<ITypeLib> Library(const wchar_t* file)
{
    ComPtr<ITypeLib> library;
    REQUIRE(::LoadTypeLibEx(ShippedFile(file).c_str(), REGKIND_NONE, &library) == S_OK);
    return library;
}

ComPtr<ITypeLib> LibraryInDll()
{
    return Library(L"VeltHTTPClient12OEM.dll");
}

/// The description without the help texts, each of which must be there unless its line is a
/// constant or an implemented type.
Lines WithoutHelp(Lines lines)
{
    for (std::string& line : lines)
    {
        const std::size_t divider = line.find(" : ");
        if (divider != line.npos)
        {
            INFO(line);
            CHECK(line.size() > divider + 3);
            line.erase(divider);
        }
    }
    return lines;
}

Lines TypeOf(REFGUID guid)
{
    ComPtr<ITypeInfo> info;
    REQUIRE(LibraryInDll()->GetTypeInfoOfGuid(guid, &info) == S_OK);
    return WithoutHelp(velt::test::DescribeType(*info.Get()));
}

Lines DispatchOf(REFGUID guid)
{
    ComPtr<ITypeInfo> info;
    REQUIRE(LibraryInDll()->GetTypeInfoOfGuid(guid, &info) == S_OK);
    return WithoutHelp(velt::test::DescribeDispatch(*info.Get()));
}
} // namespace

TEST_CASE("ProviderLib: carries its identity, version and help text", "[server]")
{
    const ComPtr<ITypeLib> library =
        Library(GENERATE(L"VeltHTTPClient12OEM.dll", L"VeltHTTPClient12OEM.tlb"));
    TLIBATTR* attributes = nullptr;
    REQUIRE(library->GetLibAttr(&attributes) == S_OK);
    CHECK(::IsEqualGUID(attributes->guid, kLibraryId));
    CHECK(::IsEqualGUID(LIBID_ProviderLib, kLibraryId)); // what the published header says
    CHECK(attributes->wMajorVerNum == 1);
    CHECK(attributes->wMinorVerNum == 0);
    CHECK(attributes->lcid == 0);
    CHECK(attributes->syskind == velt::test::kEdition.systemKind);
    CHECK((attributes->wLibFlags & (LIBFLAG_FRESTRICTED | LIBFLAG_FHIDDEN)) == 0);
    library->ReleaseTLibAttr(attributes);

    _bstr_t name;
    _bstr_t help;
    DWORD context = 77;
    _bstr_t helpFile;
    REQUIRE(library->GetDocumentation(-1, name.GetAddress(), help.GetAddress(), &context,
                                      helpFile.GetAddress()) == S_OK);
    CHECK((std::wstring(name) == L"ProviderLib"));
    CHECK((std::wstring(help) == L"VeltHTTPClient 1.0 Type Library"));
    CHECK(context == 0);
    CHECK(helpFile.length() == 0);
}

TEST_CASE("ProviderLib: holds its types in order, and no other", "[server]")
{
    const ComPtr<ITypeLib> library = LibraryInDll();
    Lines names;
    for (UINT i = 0; i < library->GetTypeInfoCount(); ++i)
    {
        _bstr_t name;
        REQUIRE(library->GetDocumentation(static_cast<INT>(i), name.GetAddress(), nullptr, nullptr,
                                          nullptr) == S_OK);
        names.push_back(Utf8FromWide(static_cast<const wchar_t*>(name)));
    }
    CHECK(names == Lines{"IVeltHTTPService", "IEnumVariantCol", "IVeltEulaDlg", "EVENT_TYPE",
                         "IVeltHTTPServiceEvents", "CVeltHTTPService", "CEnumVariantCol",
                         "CVeltEulaDlg"});
}

TEST_CASE("ProviderLib: the library's resource is the shipped file", "[server]")
{
    const ComponentLibrary library;
    const HRSRC found = ::FindResourceW(library.Module(), MAKEINTRESOURCEW(1), L"TYPELIB");
    REQUIRE(found);
    const auto* const bytes =
        static_cast<const char*>(::LockResource(::LoadResource(library.Module(), found)));
    std::ifstream file(Utf8FromWide(ShippedFile(L"VeltHTTPClient12OEM.tlb")), std::ios::binary);
    REQUIRE(file);
    const std::string shipped(std::istreambuf_iterator<char>(file), {});
    CHECK((shipped == std::string(bytes, ::SizeofResource(library.Module(), found))));
}

TEST_CASE("IVeltHTTPService: the type library has its methods in the contract's order", "[server]")
{
    // Flags 1140: dual, oleautomation, dispatchable.
    CHECK(TypeOf(IID_IVeltHTTPService) ==
          Lines{
              "interface IVeltHTTPService {E80BEAE1-D86E-4EF7-9780-53657BFF68C6} flags 1140 "
              "vtable 20",
              "id 1 at 7 HRESULT StartService()",
              "id 2 at 8 HRESULT WriteData([in] BSTR szSection, [in] BSTR szName, "
              "[in] BSTR szValue)",
              "id 3 at 9 HRESULT ReadData([in] BSTR szSection, [in] BSTR szName, "
              "[out,retval] BSTR* szValue)",
              "id 4 at 10 HRESULT SafeWriteData([in] BSTR szSection, [in] BSTR szName, "
              "[in] BSTR szValue)",
              "id 5 at 11 HRESULT SafeReadData([in] BSTR szSection, [in] BSTR szName, "
              "[out,retval] BSTR* szValue)",
              "id 6 at 12 [propget] HRESULT IsConnected([out,retval] VARIANT_BOOL* pVal)",
              "id 7 at 13 [propget] HRESULT Redirect([out,retval] BSTR* pVal)",
              "id 8 at 14 [propput] HRESULT domain([in] BSTR)",
              "id 9 at 15 HRESULT GetServiceTag([out,retval] BSTR* tag)",
              "id 10 at 16 HRESULT InvokeUpdate([in] BSTR szInstallerGuid, "
              "[in] BSTR szProductVersion, [in] long szLocale, [in] BSTR szProdDesc)",
              "id 11 at 17 HRESULT IsUpdateOrMessageAvailable([in] BSTR szInstallerGuid, "
              "[in] BSTR szProductVersion, [in] long localeValue, "
              "[in] VARIANT_BOOL vconnectToServer, [out,retval] VARIANT_BOOL* bAvailable)",
              "id 12 at 18 HRESULT GetDomain([out,retval] BSTR* szDomain)",
              "id 13 at 19 HRESULT StartUpdateService([in] BSTR szInstallerGuid, "
              "[in] BSTR szProductVersion, [in] long szLocale, [in] BSTR szProdDesc)",
              "[0] IDispatch",
          });
}

TEST_CASE("IVeltHTTPService: a script gets single out values as results", "[server]")
{
    CHECK(DispatchOf(IID_IVeltHTTPService) ==
          Lines{
              "id 1 void StartService()",
              "id 2 void WriteData([in] BSTR szSection, [in] BSTR szName, [in] BSTR szValue)",
              "id 3 BSTR ReadData([in] BSTR szSection, [in] BSTR szName)",
              "id 4 void SafeWriteData([in] BSTR szSection, [in] BSTR szName, [in] BSTR szValue)",
              "id 5 BSTR SafeReadData([in] BSTR szSection, [in] BSTR szName)",
              "id 6 [propget] VARIANT_BOOL IsConnected()",
              "id 7 [propget] BSTR Redirect()",
              "id 8 [propput] void domain([in] BSTR)",
              "id 9 BSTR GetServiceTag()",
              "id 10 void InvokeUpdate([in] BSTR szInstallerGuid, [in] BSTR szProductVersion, "
              "[in] long szLocale, [in] BSTR szProdDesc)",
              "id 11 VARIANT_BOOL IsUpdateOrMessageAvailable([in] BSTR szInstallerGuid, "
              "[in] BSTR szProductVersion, [in] long localeValue, "
              "[in] VARIANT_BOOL vconnectToServer)",
              "id 12 BSTR GetDomain()",
              "id 13 void StartUpdateService([in] BSTR szInstallerGuid, "
              "[in] BSTR szProductVersion, [in] long szLocale, [in] BSTR szProdDesc)",
          });
}

TEST_CASE("IEnumVariantCol: the type library has its methods in the contract's order", "[server]")
{
    CHECK(TypeOf(IID_IEnumVariantCol) ==
          Lines{
              "interface IEnumVariantCol {3F5FB31D-9A73-4C69-BC12-5544993222AA} flags 1140 "
              "vtable 13",
              "id -4 at 7 [propget] [restricted] HRESULT _NewEnum([out,retval] IUnknown** ppUnk)",
              "id 0 at 8 [propget] HRESULT Item([in] VARIANT Index, [out,retval] VARIANT* pVal)",
              "id 1 at 9 [propget] HRESULT Count([out,retval] long* pVal)",
              "id 2 at 10 HRESULT Add([in] VARIANT Value)",
              "id 3 at 11 HRESULT Remove([in] VARIANT Index)",
              "id 4 at 12 HRESULT Clear()",
              "[0] IDispatch",
          });
    CHECK(DispatchOf(IID_IEnumVariantCol) ==
          Lines{
              "id -4 [propget] [restricted] IUnknown* _NewEnum()",
              "id 0 [propget] VARIANT Item([in] VARIANT Index)",
              "id 1 [propget] long Count()",
              "id 2 void Add([in] VARIANT Value)",
              "id 3 void Remove([in] VARIANT Index)",
              "id 4 void Clear()",
          });
}

TEST_CASE("IVeltEulaDlg: the type library has its one method", "[server]")
{
    CHECK(TypeOf(IID_IVeltEulaDlg) ==
          Lines{
              "interface IVeltEulaDlg {BB98678D-21E9-478C-9103-B163FFE269E5} flags 1140 vtable 8",
              "id 1 at 7 HRESULT LaunchEula([in] BSTR szEulaPath, [in] BSTR szEulaXMLPath, "
              "[out,retval] VARIANT_BOOL* bAccepted)",
              "[0] IDispatch",
          });
    CHECK(DispatchOf(IID_IVeltEulaDlg) ==
          Lines{"id 1 VARIANT_BOOL LaunchEula([in] BSTR szEulaPath, [in] BSTR szEulaXMLPath)"});
}

TEST_CASE("IVeltHTTPServiceEvents: is a dispatch interface with one event", "[server]")
{
    // Flags 1000: dispatchable, and not dual.
    CHECK(TypeOf(DIID_IVeltHTTPServiceEvents) ==
          Lines{
              "dispinterface IVeltHTTPServiceEvents {7CCEC608-9BBD-42AC-BD9C-DD84955B61FF} "
              "flags 1000 vtable 7",
              "id 1 HRESULT Notify([in] EVENT_TYPE event, [in] BSTR szString)",
          });
}

TEST_CASE("EVENT_TYPE: self_upgrade is 0", "[server]")
{
    const ComPtr<ITypeLib> library = LibraryInDll();
    ComPtr<ITypeInfo> info;
    MEMBERID member = 0;
    USHORT found = 1;
    std::wstring name = L"EVENT_TYPE";
    REQUIRE(library->FindName(name.data(), 0, &info, &member, &found) == S_OK);
    REQUIRE(found == 1);
    const Lines lines = velt::test::DescribeType(*info.Get());
    REQUIRE(lines.size() == 2);
    CHECK(lines[0].starts_with("enum EVENT_TYPE "));
    CHECK(lines[1] == "self_upgrade = 0");
    CHECK(self_upgrade == 0); // what the published header says
}

TEST_CASE("The classes: each names its default interface, the service its source too", "[server]")
{
    // Flags 2: can be created. An interface's 1 is default, 3 default and source.
    CHECK(TypeOf(CLSID_CVeltHTTPService) ==
          Lines{"coclass CVeltHTTPService {5A6B579B-3C37-4A16-A3A5-F6C72FA15C40} flags 2 vtable 0",
                "[1] IVeltHTTPService", "[3] IVeltHTTPServiceEvents"});
    CHECK(TypeOf(CLSID_CEnumVariantCol) ==
          Lines{"coclass CEnumVariantCol {344E0DAC-547C-47B5-A1A0-FF9A9C193352} flags 2 vtable 0",
                "[1] IEnumVariantCol"});
    CHECK(TypeOf(CLSID_CVeltEulaDlg) ==
          Lines{"coclass CVeltEulaDlg {E9F9957F-AE23-4BBC-A97D-9815EA6E4C83} flags 2 vtable 0",
                "[1] IVeltEulaDlg"});
}

TEST_CASE("The classes: their help texts are what registration writes", "[server]")
{
    const auto [guid, expected] = GENERATE(table<const GUID*, std::wstring>({
        {&CLSID_CVeltHTTPService, L"VeltHTTPService Class"},
        {&CLSID_CEnumVariantCol, L"EnumVariantCol Class"},
        {&CLSID_CVeltEulaDlg, L"VeltEulaDlg Class"},
    }));
    ComPtr<ITypeInfo> info;
    REQUIRE(LibraryInDll()->GetTypeInfoOfGuid(*guid, &info) == S_OK);
    _bstr_t help;
    REQUIRE(info->GetDocumentation(MEMBERID_NIL, nullptr, help.GetAddress(), nullptr, nullptr) ==
            S_OK);
    CHECK((static_cast<const wchar_t*>(help) == expected));
}
