#pragma once

#include <windows.h>

/// What connection_thread_library.dll exports: starts a worker that sets one event, waits for the
/// other and ends. The caller owns the thread's handle.
extern "C" __declspec(dllexport) void StartLibraryWorker(HANDLE running, HANDLE release,
                                                         HANDLE* thread);
