#include "printer/soap/http_fault.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "printer/net/http_message.h"
#include "printer/soap/soap_message.h"

namespace vlm::printer {
namespace {

constexpr const char* kPage =
    "<!DOCTYPE html>\n<html><head><title>Velun VP-4200C</title>\n<meta charset=utf-8><body>\n"
    "<p>This page is <b>not</b> what you are looking for.<br>\n</html>\n";
constexpr const char* kSoap11Fault =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>"
    "<SOAP-ENV:Fault><faultcode>SOAP-ENV:Server</faultcode><faultstring>The print engine is "
    "busy</faultstring>"
    "<faultactor>urn:velun:engine</faultactor><detail><busy>calibrating</busy></detail></SOAP-ENV:Fault>"
    "</SOAP-ENV:Body></SOAP-ENV:Envelope>\n";
constexpr const char* kHtmlType = "text/html; charset=utf-8";

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeadEnd = "\r\n\r\n";

std::string Whole(const std::string& status, const std::string& type, const std::string& body,
                  const std::string& more = "") {
    return HttpHead(status, type, body.size(), more) + body;
}

std::string Chunked(const std::string& body) {
    std::string out = fmt::format(
        "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Type: {}\r\nTransfer-Encoding: chunked\r\n\r\n",
        kSoapType);
    constexpr std::size_t kChunk = 1000;
    for (std::size_t at = 0; at < body.size(); at += kChunk) {
        const std::string piece = body.substr(at, kChunk);
        out += fmt::format("{:x}\r\n{}\r\n", piece.size(), piece);
    }
    return out + "0\r\n\r\n";
}

std::string Gzip(const std::string& text) {
    constexpr int kGzipFormat = 15 + 16;  // the largest window, a gzip head
    constexpr int kMemoryLevel = 8;
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipFormat, kMemoryLevel,
                     Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("zlib cannot compress");
    std::string out(deflateBound(&stream, text.size()), '\0');
    std::string in = text;  // zlib's input pointer is not const everywhere
    stream.next_in = reinterpret_cast<Bytef*>(in.data());
    stream.avail_in = static_cast<uInt>(in.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

// Where white space, or a text, may be added: before the root's end tag.
std::size_t EndTag(const std::string& body) {
    const auto found = body.rfind("</");
    return found == std::string::npos ? body.size() : found;
}

// Ten letters, ten levels of ten: 100 GB when it is expanded.
std::string WithEntityBomb(const std::string& body) {
    std::string declaration = "<!DOCTYPE bomb [\n<!ENTITY e0 \"aaaaaaaaaa\">\n";
    constexpr int kLevels = 10;
    for (int level = 1; level <= kLevels; ++level) {
        declaration += fmt::format("<!ENTITY e{} \"", level);
        for (int i = 0; i < 10; ++i)
            declaration += fmt::format("&e{};", level - 1);
        declaration += "\">\n";
    }
    declaration += "]>\n";
    std::string out = body;
    out.insert(EndTag(out), fmt::format("&e{};", kLevels));
    const auto prologEnd = out.find("?>");
    out.insert(prologEnd == std::string::npos ? 0 : prologEnd + 2, declaration);
    return out;
}

std::size_t CutAt(HttpStage stage, const std::string& answer, std::size_t bodyStart) {
    const std::size_t lineEnd = std::min(answer.find(kLineEnd), answer.size());
    switch (stage) {
        case HttpStage::kStatusLine:
            return lineEnd / 2;
        case HttpStage::kHead:
            return lineEnd + (bodyStart - lineEnd) / 2;
        case HttpStage::kBody:
            return bodyStart + (answer.size() - bodyStart) / 2;
        default:
            return 0;
    }
}

}  // namespace

std::optional<std::string> FindFlaw(const HttpFault& fault) {
    constexpr std::uint64_t kLongestPause = 60'000;
    constexpr std::uint64_t kMostBytes = std::uint64_t{4} << 30;
    constexpr std::array<std::uint64_t, 5> kRedirects{301, 302, 303, 307, 308};
    if (fault.piece == 0) return "'piece' must be at least 1";
    if (fault.pause > kLongestPause) return "'pause' is at most a minute";
    if (fault.bytes > kMostBytes) return "'bytes' is at most 4 GB";
    if (std::find(kRedirects.begin(), kRedirects.end(), fault.status) == kRedirects.end())
        return "'status' must be 301, 302, 303, 307 or 308";
    if (fault.connections && *fault.connections == 0) return "'connections' must be at least 1";
    return std::nullopt;
}

Delivery Misbehave(const HttpFault& fault, const std::string& answer, const std::string& path,
                   const std::string& selfUrl) {
    const auto headEnd = answer.find(kHeadEnd);
    const std::size_t bodyStart = headEnd == std::string::npos ? answer.size() : headEnd + kHeadEnd.size();
    const std::string body = answer.substr(bodyStart);
    const auto send = [](std::string bytes) { return Delivery{{{std::move(bytes)}}}; };
    const auto cut = [&](Delivery::End end) {
        Delivery delivery = send(answer.substr(0, CutAt(fault.at, answer, bodyStart)));
        delivery.end = end;
        return delivery;
    };
    const auto redirect = [&](const std::string& to) {
        const std::string location = fmt::format("Location: {}{}\r\n", selfUrl, to);
        return send(Whole(fmt::format("{} Moved", fault.status), kHtmlType, kPage, location));
    };

    switch (fault.mode) {
        case HttpFaultMode::kMute:
            return cut(Delivery::End::kHold);
        case HttpFaultMode::kClose:
            return cut(Delivery::End::kAbrupt);
        case HttpFaultMode::kReset:
            return cut(Delivery::End::kReset);
        case HttpFaultMode::kDrip: {
            Delivery delivery = send(answer);
            delivery.piece = fault.piece;
            delivery.pause = fault.pause;
            return delivery;
        }
        case HttpFaultMode::kEmpty:
            return send(Whole("200 OK", kSoapType, ""));
        case HttpFaultMode::kTruncated:
            return send(Whole("200 OK", kSoapType, body.substr(0, body.size() / 2)));
        case HttpFaultMode::kLengthLong:
            return send(HttpHead("200 OK", kSoapType, body.size() + 1000) + body);
        case HttpFaultMode::kLengthShort:
            return send(HttpHead("200 OK", kSoapType, body.size() / 2) + body);
        case HttpFaultMode::kChunked:
            return send(Chunked(body));
        case HttpFaultMode::kGzip:
            return send(Whole("200 OK", kSoapType, Gzip(body), "Content-Encoding: gzip\r\n"));
        case HttpFaultMode::kHuge: {
            const std::string block(64'000, ' ');
            const std::uint64_t blocks = (fault.bytes + block.size() - 1) / block.size();
            const std::size_t end = EndTag(body);
            return {
                {{HttpHead("200 OK", kSoapType, body.size() + blocks * block.size()) + body.substr(0, end)},
                 {block, blocks},
                 {body.substr(end)}}};
        }
        case HttpFaultMode::kNotFound:
            return send(Whole("404 Not Found", kHtmlType, kPage));
        case HttpFaultMode::kUnauthorized:
            return send(Whole("401 Unauthorized", kHtmlType, kPage,
                              "WWW-Authenticate: Basic realm=\"Velun VP-4200C\"\r\n"));
        case HttpFaultMode::kSoap11Fault:
            return send(Whole("500 Internal Server Error", "text/xml; charset=utf-8", kSoap11Fault));
        case HttpFaultMode::kSoap12Fault:
            return send(Whole("500 Internal Server Error", kSoapType,
                              FaultMessage("Receiver", "The print engine is busy", "")));
        case HttpFaultMode::kNoXml:
            return send(Whole("500 Internal Server Error", "text/plain", "The print engine is busy\n"));
        case HttpFaultMode::kHtml:
            return send(Whole("200 OK", kHtmlType, kPage));
        case HttpFaultMode::kEntityBomb:
            return send(Whole("200 OK", kSoapType, WithEntityBomb(body)));
        case HttpFaultMode::kRedirect:
            return path.starts_with(kMovedPrefix) ? send(answer) : redirect(kMovedPrefix + path);
        case HttpFaultMode::kRedirectLoop:
            return redirect(path);
    }
    return send(answer);
}

}  // namespace vlm::printer
