#pragma once

#include <windows.h>

#include <objbase.h>

/// Keeps the server's process while it lives. The process has one thread that counts.
class ProcessReference
{
public:
    ProcessReference() noexcept
    {
        Add();
    }

    ProcessReference(const ProcessReference&) = delete;
    ProcessReference& operator=(const ProcessReference&) = delete;

    ~ProcessReference()
    {
        Remove();
    }

    static void Add() noexcept
    {
        ::CoAddRefServerProcess();
    }

    /// With the last one, the class object goes before its client hears that it has released the
    /// agent: its next call starts another process.
    static void Remove() noexcept
    {
        if (::CoReleaseServerProcess() == 0)
        {
            ::CoRevokeClassObject(s_classObject);
            ::PostQuitMessage(0);
        }
    }

    /// The registration of the class object, which goes with the last reference.
    static void Keep(DWORD classObject) noexcept
    {
        s_classObject = classObject;
    }

private:
    inline static DWORD s_classObject = 0;
};
