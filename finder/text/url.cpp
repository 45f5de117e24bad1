#include "finder/text/url.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <memory>

namespace Lanscout {
namespace {

struct FreeHandle {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using Handle = std::unique_ptr<CURLU, FreeHandle>;

struct FreeText {
    void operator()(char* text) const { curl_free(text); }
};

std::optional<std::string> Part(CURLU* handle, CURLUPart part, unsigned int flags = 0) {
    char* text = nullptr;
    if (curl_url_get(handle, part, &text, flags) != CURLUE_OK) {
        return std::nullopt;
    }
    const std::unique_ptr<char, FreeText> owner(text);
    return std::string(text);
}

bool Set(CURLU* handle, const std::string& url) {
    return url.find('\0') == std::string::npos &&
           curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::optional<Url> UrlOf(CURLU* handle) {
    const auto scheme = Part(handle, CURLUPART_SCHEME);
    const auto host = Part(handle, CURLUPART_HOST);
    const auto port = Part(handle, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    const auto text = Part(handle, CURLUPART_URL);
    if (!scheme || !host || host->empty() || !port || !text ||
        (*scheme != "http" && *scheme != "https") || Part(handle, CURLUPART_USER) ||
        Part(handle, CURLUPART_PASSWORD) || Part(handle, CURLUPART_ZONEID)) {
        return std::nullopt;
    }
    return Url{*scheme == "https", *host, std::atoi(port->c_str()), *text};
}

}  // namespace

std::optional<Url> ReadUrl(const std::string& text) {
    const Handle handle(curl_url());
    if (!handle || !Set(handle.get(), text)) {
        return std::nullopt;
    }
    std::optional<Url> url = UrlOf(handle.get());
    const bool asWritten = url && Lower(text).find("://" + Lower(url->host)) != std::string::npos;
    return asWritten ? url : std::nullopt;
}

std::optional<Url> ResolveUrl(const std::string& reference, const std::string& base) {
    const Handle handle(curl_url());
    if (!handle || !Set(handle.get(), base) || !Set(handle.get(), reference)) {
        return std::nullopt;
    }
    return UrlOf(handle.get());
}

}  // namespace Lanscout
