#include "internet/file_url.h"

namespace velt
{
std::wstring FileUrl(std::wstring_view server, std::wstring_view object)
{
    std::wstring url(L"http://");
    url.append(server);
    if (!object.empty())
    {
        if (object.front() != L'/' && object.front() != L'\\')
        {
            url.push_back(L'/');
        }
        url.append(object);
    }
    return url;
}
} // namespace velt
