#include "tests/support/type_library_text.h"

#include "foundation/wide_text.h"

#include <comutil.h>
#include <wrl/client.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <utility>

using Microsoft::WRL::ComPtr;

namespace velt::test
{
namespace
{
void Check(HRESULT hr, const char* what)
{
    if (FAILED(hr))
    {
        throw std::runtime_error(std::string("cannot read ") + what);
    }
}

std::string Text(BSTR text)
{
    return Utf8FromWide({text ? text : L"", ::SysStringLen(text)});
}

/// The name and the help text of a member, or of the type itself for MEMBERID_NIL.
std::pair<std::string, std::string> Documentation(ITypeInfo& info, MEMBERID member)
{
    _bstr_t name;
    _bstr_t help;
    DWORD context = 77;
    Check(info.GetDocumentation(member, name.GetAddress(), help.GetAddress(), &context, nullptr),
          "a documentation");
    return {Text(name), Text(help) + (context == 0 ? "" : " (help context)")};
}

std::string GuidText(REFGUID guid)
{
    std::array<wchar_t, 39> text{};
    ::StringFromGUID2(guid, text.data(), static_cast<int>(text.size()));
    return Utf8FromWide(text.data());
}

std::string Number(const char* format, unsigned long value)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

std::string TypeName(ITypeInfo& info, const TYPEDESC& type)
{
    switch (type.vt)
    {
    case VT_PTR:
        return TypeName(info, *type.lptdesc) + "*";
    case VT_USERDEFINED:
    {
        ComPtr<ITypeInfo> named;
        Check(info.GetRefTypeInfo(type.hreftype, &named), "a type by reference");
        return Documentation(*named.Get(), MEMBERID_NIL).first;
    }
    case VT_HRESULT:
        return "HRESULT";
    case VT_BSTR:
        return "BSTR";
    case VT_VARIANT:
        return "VARIANT";
    case VT_BOOL:
        return "VARIANT_BOOL";
    case VT_I4:
        return "long";
    case VT_UNKNOWN:
        return "IUnknown*";
    case VT_VOID:
        return "void";
    default:
        return Number("vt %lu", type.vt);
    }
}

std::string ParameterFlags(USHORT flags)
{
    std::string text = flags & PARAMFLAG_FIN ? "in" : "";
    text += flags & PARAMFLAG_FOUT ? "out" : "";
    text += flags & PARAMFLAG_FRETVAL ? ",retval" : "";
    const int others = flags & ~(PARAMFLAG_FIN | PARAMFLAG_FOUT | PARAMFLAG_FRETVAL);
    return text + (others ? Number(" and %lX", static_cast<unsigned long>(others)) : "");
}

std::string FunctionAttributes(const FUNCDESC& function)
{
    std::string text;
    switch (function.invkind)
    {
    case INVOKE_FUNC:
        break;
    case INVOKE_PROPERTYGET:
        text += "[propget] ";
        break;
    case INVOKE_PROPERTYPUT:
        text += "[propput] ";
        break;
    default:
        text += "[propputref] ";
    }
    if (function.wFuncFlags)
    {
        text += function.wFuncFlags == FUNCFLAG_FRESTRICTED
                    ? "[restricted] "
                    : Number("[flags %lX] ", function.wFuncFlags);
    }
    return text;
}

std::string DescribeFunction(ITypeInfo& info, const FUNCDESC& function)
{
    std::array<BSTR, 16> names{};
    UINT count = 0;
    Check(info.GetNames(function.memid, names.data(), static_cast<UINT>(names.size()), &count),
          "the names of a method");
    std::array<_bstr_t, 16> owned;
    for (UINT i = 0; i < count; ++i)
    {
        owned[i].Attach(names[i]);
    }
    std::string text = "id " + std::to_string(function.memid);
    if (function.funckind != FUNC_DISPATCH)
    {
        text += " at " + std::to_string(static_cast<std::size_t>(function.oVft) / sizeof(void*));
    }
    text += ' ' + FunctionAttributes(function) + TypeName(info, function.elemdescFunc.tdesc) + ' ' +
            Text(owned[0]) + '(';
    for (int i = 0; i < function.cParams; ++i)
    {
        const ELEMDESC& parameter = function.lprgelemdescParam[i];
        const auto name = static_cast<std::size_t>(i) + 1;
        text += i == 0 ? "[" : ", [";
        text += ParameterFlags(parameter.paramdesc.wParamFlags) + "] " +
                TypeName(info, parameter.tdesc);
        // The value of a put has no name in a type library.
        text += name < count ? ' ' + Text(owned[name]) : "";
    }
    text += function.callconv == CC_STDCALL ? ")" : ") not stdcall";
    return text + " : " + Documentation(info, function.memid).second;
}

void DescribeFunctions(ITypeInfo& info, UINT count, std::vector<std::string>& lines)
{
    for (UINT i = 0; i < count; ++i)
    {
        FUNCDESC* function = nullptr;
        Check(info.GetFuncDesc(i, &function), "a method");
        const bool inherited = function->memid >= 0x60000000;
        if (!inherited) // IUnknown's and IDispatch's
        {
            lines.push_back(DescribeFunction(info, *function));
        }
        info.ReleaseFuncDesc(function);
    }
}

void DescribeConstants(ITypeInfo& info, UINT count, std::vector<std::string>& lines)
{
    for (UINT i = 0; i < count; ++i)
    {
        VARDESC* variable = nullptr;
        Check(info.GetVarDesc(i, &variable), "a constant");
        const auto [name, help] = Documentation(info, variable->memid);
        lines.push_back(name + (variable->varkind == VAR_CONST && variable->lpvarValue->vt == VT_I4
                                    ? " = " + std::to_string(variable->lpvarValue->lVal)
                                    : " is no constant"));
        info.ReleaseVarDesc(variable);
    }
}

void DescribeImplemented(ITypeInfo& info, UINT count, std::vector<std::string>& lines)
{
    for (UINT i = 0; i < count; ++i)
    {
        INT flags = 0;
        HREFTYPE reference = 0;
        Check(info.GetImplTypeFlags(i, &flags), "an implemented type's flags");
        Check(info.GetRefTypeOfImplType(i, &reference), "an implemented type");
        ComPtr<ITypeInfo> implemented;
        Check(info.GetRefTypeInfo(reference, &implemented), "an implemented type");
        lines.push_back(Number("[%lX] ", static_cast<unsigned long>(flags)) +
                        Documentation(*implemented.Get(), MEMBERID_NIL).first);
    }
}
} // namespace

std::vector<std::string> DescribeType(ITypeInfo& info)
{
    constexpr std::array<const char*, 8> kKinds = {
        "enum", "record", "module", "interface", "dispinterface", "coclass", "alias", "union"};
    TYPEATTR* attributes = nullptr;
    Check(info.GetTypeAttr(&attributes), "a type");
    const TYPEATTR type = *attributes;
    info.ReleaseTypeAttr(attributes);

    if (type.typekind == TKIND_DISPATCH && (type.wTypeFlags & TYPEFLAG_FDUAL) != 0)
    {
        HREFTYPE reference = 0;
        ComPtr<ITypeInfo> vtable;
        Check(info.GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), "a vtable");
        Check(info.GetRefTypeInfo(reference, &vtable), "a vtable");
        return DescribeType(*vtable.Get());
    }
    const auto [name, help] = Documentation(info, MEMBERID_NIL);
    std::vector<std::string> lines;
    lines.push_back(std::string(kKinds.at(static_cast<std::size_t>(type.typekind))) + ' ' + name +
                    ' ' + GuidText(type.guid) + Number(" flags %lX", type.wTypeFlags) +
                    Number(" vtable %lu", type.cbSizeVft / static_cast<ULONG>(sizeof(void*))) +
                    " : " + help);
    DescribeFunctions(info, type.cFuncs, lines);
    DescribeConstants(info, type.cVars, lines);
    if (type.typekind == TKIND_COCLASS || type.typekind == TKIND_INTERFACE)
    {
        DescribeImplemented(info, type.cImplTypes, lines);
    }
    return lines;
}

std::vector<std::string> DescribeDispatch(ITypeInfo& info)
{
    TYPEATTR* attributes = nullptr;
    Check(info.GetTypeAttr(&attributes), "a type");
    const UINT count = attributes->cFuncs;
    const bool dispatch = attributes->typekind == TKIND_DISPATCH;
    info.ReleaseTypeAttr(attributes);
    if (!dispatch)
    {
        throw std::runtime_error("no dispatch interface");
    }
    std::vector<std::string> lines;
    DescribeFunctions(info, count, lines);
    return lines;
}
} // namespace velt::test
