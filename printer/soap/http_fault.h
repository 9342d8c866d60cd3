// What the SOAP services' ports do wrong on request.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "printer/shared/fault_slot.h"
#include "printer/shared/name_table.h"

namespace vlm::printer {

enum class HttpFaultMode {
    // Up to a stage everything is right, then:
    kMute,   // nothing more comes until the client closes or the fault is cleared
    kClose,  // the connection is closed
    kReset,  // it is reset
    // The right answer, delivered wrongly:
    kDrip,         // piece by piece, with pauses
    kEmpty,        // 200 without a body
    kTruncated,    // the first half of the body, with the length of that half
    kLengthLong,   // a Content-Length beyond the body, which then ends with the connection
    kLengthShort,  // a Content-Length of half the body, all of which comes
    kChunked,
    kGzip,
    kHuge,  // well-formed, with much white space
    // Another answer:
    kNotFound,      // 404, HTML
    kUnauthorized,  // 401
    kSoap11Fault,   // 500
    kSoap12Fault,   // 500
    kNoXml,         // 500
    kHtml,          // 200
    kEntityBomb,    // the right answer behind a document type declaration with nested entities
    kRedirect,      // to a path where the service answers
    kRedirectLoop,  // to the same address
};
inline constexpr NameTable<HttpFaultMode, 20> kHttpFaultModes{{
    {"mute", HttpFaultMode::kMute},
    {"close", HttpFaultMode::kClose},
    {"reset", HttpFaultMode::kReset},
    {"drip", HttpFaultMode::kDrip},
    {"empty", HttpFaultMode::kEmpty},
    {"truncated", HttpFaultMode::kTruncated},
    {"length-long", HttpFaultMode::kLengthLong},
    {"length-short", HttpFaultMode::kLengthShort},
    {"chunked", HttpFaultMode::kChunked},
    {"gzip", HttpFaultMode::kGzip},
    {"huge", HttpFaultMode::kHuge},
    {"not-found", HttpFaultMode::kNotFound},
    {"unauthorized", HttpFaultMode::kUnauthorized},
    {"soap11-fault", HttpFaultMode::kSoap11Fault},
    {"soap12-fault", HttpFaultMode::kSoap12Fault},
    {"no-xml", HttpFaultMode::kNoXml},
    {"html", HttpFaultMode::kHtml},
    {"entity-bomb", HttpFaultMode::kEntityBomb},
    {"redirect", HttpFaultMode::kRedirect},
    {"redirect-loop", HttpFaultMode::kRedirectLoop},
}};

enum class HttpStage {
    kConnect,     // nothing is read, not even a TLS handshake
    kRequest,     // the request is read
    kStatusLine,  // half of the status line is sent
    kHead,        // half of the header lines are sent
    kBody,        // half of the body is sent
};
inline constexpr NameTable<HttpStage, 5> kHttpStages{{
    {"connect", HttpStage::kConnect},
    {"request", HttpStage::kRequest},
    {"status-line", HttpStage::kStatusLine},
    {"head", HttpStage::kHead},
    {"body", HttpStage::kBody},
}};

struct HttpFault {
    HttpFaultMode mode = HttpFaultMode::kClose;
    HttpStage at = HttpStage::kRequest;        // mute, close, reset
    std::uint64_t piece = 16;                  // drip: bytes
    std::uint64_t pause = 50;                  // drip: milliseconds after each
    std::uint64_t bytes = 100'000'000;         // huge: at least
    std::uint64_t status = 307;                // redirect, redirect-loop
    std::optional<std::uint64_t> connections;  // how many; without it, all until it is cleared
};

std::optional<std::string> FindFlaw(const HttpFault& fault);

// What kRedirect puts before the path: the service answers there as well, and without that fault.
inline constexpr const char* kMovedPrefix = "/moved";

// What goes out on the connection and how it ends.
struct Delivery {
    enum class End { kOrderly, kAbrupt, kReset, kHold };
    struct Part {
        std::string bytes;
        std::uint64_t times = 1;
    };
    std::vector<Part> parts;
    std::uint64_t piece = 0;  // bytes per send, with a pause after each; 0: all at once
    std::uint64_t pause = 0;  // milliseconds
    End end = End::kOrderly;
};

// `answer` is the right one, head and body; `path` the request's; `selfUrl` the service's address without a
// path.
Delivery Misbehave(const HttpFault& fault, const std::string& answer, const std::string& path,
                   const std::string& selfUrl);

// Clearing a fault releases the connections that are held, too.
using HttpFaults = FaultSlot<HttpFault>;

}  // namespace vlm::printer
