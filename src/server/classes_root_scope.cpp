#include "server/classes_root_scope.h"

#include "foundation/reg_key.h"
#include "foundation/system_exception.h"

namespace velt
{
ClassesRootScope::ClassesRootScope(RegistrationScope scope)
{
    CRegKeyW classes; // the system keeps a handle of its own
    const RegistryLocation at = ClassesOf(scope);
    ThrowIfRegistryError(classes.Create(at.root, at.path.c_str()));
    ThrowIfRegistryError(::RegOverridePredefKey(HKEY_CLASSES_ROOT, classes.GetKey()));
}

ClassesRootScope::~ClassesRootScope()
{
    ::RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
}
} // namespace velt
