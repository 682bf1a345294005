#pragma once

#include <windows.h>

#include <cstddef>

/// What torture_exchange.dll exports: the exchanges and questions of connection/ and internet/ that
/// no class of the component offers to hosts, in a library of their own whose calls can fail. All
/// run on the calling thread and answer with the HRESULT of what they throw.
struct ExchangeOutcome
{
    DWORD lastError = 0; // 0: none was told
    int errors = 0;
    int completions = 0;
    DWORD bodyBytes = 0;
    char body[64] = {}; // its beginning
    bool hasBody = false;
};

extern "C"
{
    /// One exchange, by itself or as a request of a queue of its own, whose end is waited for so
    /// long; `user` may be null.
    __declspec(dllexport) HRESULT
        TortureFetch(const char* url, const char* user, const char* password, const char* data,
                     ExchangeOutcome* outcome);
    __declspec(dllexport) HRESULT
        TortureQueue(const char* url, DWORD limitMs, ExchangeOutcome* outcome);

    __declspec(dllexport) HRESULT TortureProbe(DWORD* flags);
    __declspec(dllexport) HRESULT TortureCheckConnection(const wchar_t* url, DWORD* state);
    __declspec(dllexport) HRESULT TorturePing(const char* address);
    __declspec(dllexport) HRESULT TortureProxySettings();
    __declspec(dllexport) HRESULT TortureProperties();

    /// How many internet handles the library has open.
    __declspec(dllexport) std::size_t TortureOpenHandles();
}
