#pragma once

#include "server/registrar_writer.h"

namespace velt
{
/// Has HKEY_CLASSES_ROOT, which shows the machine's classes and the user's, mean those of one of
/// them alone until the end of the scope: so what the system writes there goes to that one. It
/// concerns the whole process. One at a time.
class ClassesRootScope
{
public:
    /// Throws SystemException::Win32.
    explicit ClassesRootScope(RegistrationScope scope);

    ClassesRootScope(const ClassesRootScope&) = delete;
    ClassesRootScope& operator=(const ClassesRootScope&) = delete;

    ~ClassesRootScope();
};
} // namespace velt
