// What decoding VPCA costs, against two decoders of the same trade fed with equal payloads in the same run:
// net-snmp's PDU parser and CUPS's IPP reader. Prints a table; --json FILE also writes the rows there.
//
// Every figure is the best of many short rounds, and the rounds of what is compared alternate, so that a busy
// machine slows both sides alike.

#include <net-snmp/net-snmp-config.h>
// net-snmp-config.h first.
#include <cups/ipp.h>
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "vpca/attribute_list.h"
#include "vpca/attribute_table.h"
#include "vpca/frame.h"
#include "vpca/memory.h"
#include "vpca/tables.h"

namespace vlm::vpca {

namespace {
long allocations = 0;
}

// The library's own allocation functions with a counter.
void* Allocate(size_t size) {
    ++allocations;
    return std::calloc(1, size);
}
void* Reallocate(void* block, size_t size) {
    ++allocations;
    return std::realloc(block, size);
}
void Free(void* block) {
    std::free(block);
}

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kRounds = 60;
constexpr uint32_t kBlockSize = 64 * 1024;

[[noreturn]] void Die(const char* what) {
    std::fprintf(stderr, "vpca_bench: %s\n", what);
    std::exit(1);
}

// Keeps the compiler from computing `value` away.
template <typename Value>
void Keep(const Value& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

double SecondsOf(const std::function<void()>& work, int repeats) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < repeats; ++i)
        work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / repeats;
}

struct Contender {
    std::function<void()> work;
    int repeats;
    double seconds = 1e9;
};

void Race(std::initializer_list<Contender*> contenders) {
    for (int round = 0; round < kRounds; ++round) {
        for (Contender* c : contenders)
            c->seconds = std::min(c->seconds, SecondsOf(c->work, c->repeats));
    }
}

struct Row {
    const char* name;
    const char* unit;
    double ours;
    // Negative: there is none.
    double reference;
    const char* referenceIs;
    double ratio;
    const char* target;
};

struct Attribute {
    uint16_t id;
    Bytes value;
};

// 40 attributes of every layout: scalars, lists, texts, opaque values and unknown ids.
std::vector<Attribute> MakeAttributes() {
    Bytes addresses{2};
    addresses.resize(9, 0xC0);
    Bytes pairs{2};
    pairs.resize(17, 0xC1);
    Bytes text{192, 0, 2, 5, 12};
    text.resize(30, 'x');
    const Attribute kinds[] = {
        {180, Bytes(8, 1)}, {2405, Bytes(28, 2)},    {144, addresses},    {6012, pairs},
        {2112, text},       {1003, Bytes(12, 0x33)}, {2, Bytes(4, 0x44)}, {7000, Bytes(6, 0x55)},
    };
    std::vector<Attribute> attributes;
    while (attributes.size() < 40)
        attributes.push_back(kinds[attributes.size() % std::size(kinds)]);
    return attributes;
}

Bytes EncodeVpca(const std::vector<Attribute>& attributes) {
    Bytes wire{static_cast<uint8_t>(attributes.size())};
    for (const Attribute& attribute : attributes) {
        wire.push_back(static_cast<uint8_t>(attribute.id >> 8));
        wire.push_back(static_cast<uint8_t>(attribute.id));
        wire.push_back(static_cast<uint8_t>(attribute.value.size()));
        wire.insert(wire.end(), attribute.value.begin(), attribute.value.end());
    }
    return wire;
}

Bytes EncodeSnmp(const std::vector<Attribute>& attributes) {
    netsnmp_pdu* const pdu = snmp_pdu_create(SNMP_MSG_RESPONSE);
    for (const Attribute& attribute : attributes) {
        const oid name[] = {1, 3, 6, 1, 4, 1, 99999, 1, attribute.id, 0};
        snmp_pdu_add_variable(pdu, name, std::size(name), ASN_OCTET_STR, attribute.value.data(),
                              attribute.value.size());
    }
    Bytes wire(8192);
    size_t room = wire.size();
    const u_char* const end = snmp_pdu_build(pdu, wire.data(), &room);
    snmp_free_pdu(pdu);
    if (end == nullptr) Die("net-snmp refuses to build the PDU");
    wire.resize(static_cast<size_t>(end - wire.data()));
    return wire;
}

struct IppStream {
    Bytes bytes;
    size_t position = 0;
};

ssize_t WriteIpp(void* context, ipp_uchar_t* bytes, size_t size) {
    auto* stream = static_cast<IppStream*>(context);
    stream->bytes.insert(stream->bytes.end(), bytes, bytes + size);
    return static_cast<ssize_t>(size);
}

ssize_t ReadIpp(void* context, ipp_uchar_t* bytes, size_t size) {
    auto* stream = static_cast<IppStream*>(context);
    const size_t count = std::min(size, stream->bytes.size() - stream->position);
    std::memcpy(bytes, stream->bytes.data() + stream->position, count);
    stream->position += count;
    return static_cast<ssize_t>(count);
}

IppStream EncodeIpp(const std::vector<Attribute>& attributes) {
    ipp_t* const message = ippNewResponse(ippNew());
    for (const Attribute& attribute : attributes) {
        ippAddOctetString(message, IPP_TAG_PRINTER, ("a" + std::to_string(attribute.id)).c_str(),
                          attribute.value.data(), static_cast<int>(attribute.value.size()));
    }
    IppStream stream;
    if (ippWriteIO(&stream, WriteIpp, 1, nullptr, message) != IPP_STATE_DATA)
        Die("CUPS refuses to write the message");
    ippDelete(message);
    return stream;
}

void MeasureLists(std::vector<Row>* rows) {
    const std::vector<Attribute> attributes = MakeAttributes();
    const auto count = static_cast<double>(attributes.size());
    const Bytes vpcaWire = EncodeVpca(attributes);
    const Bytes snmpWire = EncodeSnmp(attributes);
    IppStream ippWire = EncodeIpp(attributes);

    Contender ours{[&] {
                       const ByteString text{static_cast<uint16_t>(vpcaWire.size()), vpcaWire.data()};
                       AttributeList list;
                       AttributeDestination destination;
                       const VpcaError error = DecodeAttributeList(&list, &text, kLongListContext, nullptr,
                                                                   kVersion10, &destination);
                       if (error != VpcaError::kSuccess || list.count != attributes.size())
                           Die("VPCA decoding fails");
                       Keep(list);
                   },
                   500};
    Bytes snmpCopy = snmpWire;
    Contender snmp{[&] {
                       netsnmp_pdu* const pdu = snmp_pdu_create(SNMP_MSG_RESPONSE);
                       size_t size = snmpCopy.size();
                       if (snmp_pdu_parse(pdu, snmpCopy.data(), &size) != 0) Die("net-snmp decoding fails");
                       Keep(*pdu);
                       snmp_free_pdu(pdu);
                   },
                   100};
    Contender ipp{[&] {
                      ippWire.position = 0;
                      ipp_t* const message = ippNew();
                      if (ippReadIO(&ippWire, ReadIpp, 1, nullptr, message) != IPP_STATE_DATA) {
                          Die("CUPS decoding fails");
                      }
                      Keep(*message);
                      ippDelete(message);
                  },
                  30};
    Race({&ours, &snmp, &ipp});

    const auto perAttribute = [&](const Contender& c) { return c.seconds * 1e9 / count; };
    const double nanoseconds = perAttribute(ours);
    rows->push_back({"vpca list decode", "ns/attribute", nanoseconds, -1, "", 0, "<= 15 ns"});
    rows->push_back({"vpca list decode vs net-snmp", "ns/attribute", nanoseconds, perAttribute(snmp),
                     "net-snmp snmp_pdu_parse", perAttribute(snmp) / nanoseconds, ">= 4 x"});
    rows->push_back({"vpca list decode vs CUPS", "ns/attribute", nanoseconds, perAttribute(ipp),
                     "CUPS ippReadIO", perAttribute(ipp) / nanoseconds, ">= 12 x"});

    const long before = allocations;
    ours.work();
    rows->push_back({"vpca list allocations", "allocations/list", static_cast<double>(allocations - before),
                     -1, "", 0, "1"});
}

// A data block is decoded in place; what the caller of an exchange gets is decoded and copied.
void MeasureDataBlock(std::vector<Row>* rows) {
    Bytes frame{0xCD, 0xCA, 0x10, 0x05, 0x00, 0x31, 0, 1, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 7};
    frame.resize(frame.size() + kBlockSize, 0x5A);
    Bytes destination(kBlockSize);
    Contender ours{[&] {
                       VpcaHeader header;
                       VpcaResult result;
                       const VpcaError error = DecodeResponse(
                           &header, &result, {frame.data(), static_cast<uint32_t>(frame.size())});
                       const auto* block = std::get_if<DataBlock>(&result.body);
                       if (error != VpcaError::kSuccess || block->size != kBlockSize)
                           Die("data block decoding fails");
                       std::memcpy(destination.data(), block->data, block->size);
                       Keep(destination[0]);
                   },
                   200};
    Contender copy{[&] {
                       std::memcpy(destination.data(), frame.data() + 24, kBlockSize);
                       Keep(destination[0]);
                   },
                   200};
    Race({&ours, &copy});
    const auto rate = [](const Contender& c) { return kBlockSize / c.seconds / 1e9; };
    rows->push_back({"vpca data block decode", "GB/s", rate(ours), rate(copy), "memcpy of the same bytes",
                     rate(ours) / rate(copy), ">= 0.5 x"});
}

void MeasureLookup(std::vector<Row>* rows) {
    constexpr int kLookups = 1000;
    const auto find = [](uint16_t id) {
        return [id] {
            for (int i = 0; i < kLookups; ++i) {
                // Not a constant to the compiler.
                uint16_t asked = id;
                asm volatile("" : "+r"(asked));
                const AttributeDescriptor* const found = FindAttribute(asked, kVersion10);
                Keep(found);
            }
        };
    };
    Contender first{find(2), 20};
    Contender last{find(14009), 20};
    Contender unknown{find(65535), 20};
    Race({&first, &last, &unknown});
    const auto each = [](const Contender& c) { return c.seconds * 1e9 / kLookups; };
    rows->push_back({"vpca lookup of the last id", "ns/lookup", each(last), each(first),
                     "lookup of the first id", each(first) / each(last), "~ 1 x"});
    rows->push_back({"vpca lookup of an unknown id", "ns/lookup", each(unknown), each(first),
                     "lookup of the first id", each(first) / each(unknown), "~ 1 x"});
}

void PrintTable(const std::vector<Row>& rows) {
    std::printf("%-32s %-17s %9s %9s %7s  %-9s %s\n", "name", "unit", "ours", "reference", "ratio", "target",
                "against");
    for (const Row& row : rows) {
        std::printf("%-32s %-17s %9.2f ", row.name, row.unit, row.ours);
        if (row.reference < 0) {
            std::printf("%9s %7s  %-9s\n", "", "", row.target);
        } else {
            std::printf("%9.2f %7.2f  %-9s %s\n", row.reference, row.ratio, row.target, row.referenceIs);
        }
    }
}

void WriteJson(const std::vector<Row>& rows, const char* path) {
    std::FILE* const file = std::fopen(path, "w");
    if (file == nullptr) Die("the JSON file cannot be written");
    std::fprintf(file, "[\n");
    for (const Row& row : rows) {
        std::fprintf(file, "  {\"name\": \"%s\", \"unit\": \"%s\", \"ours\": %.4f, ", row.name, row.unit,
                     row.ours);
        if (row.reference < 0) {
            std::fprintf(file, "\"reference\": null, \"reference_is\": null, \"ratio\": null, ");
        } else {
            std::fprintf(file, "\"reference\": %.4f, \"reference_is\": \"%s\", \"ratio\": %.4f, ",
                         row.reference, row.referenceIs, row.ratio);
        }
        std::fprintf(file, "\"target\": \"%s\"}%s\n", row.target, &row == &rows.back() ? "" : ",");
    }
    std::fprintf(file, "]\n");
    std::fclose(file);
}

}  // namespace
}  // namespace vlm::vpca

int main(int argc, char** argv) {
    const char* json = nullptr;
    if (argc == 3 && std::strcmp(argv[1], "--json") == 0) {
        json = argv[2];
    } else if (argc != 1) {
        std::fprintf(stderr, "usage: vpca_bench [--json FILE]\n");
        return 2;
    }
    vlm::vpca::RegisterTables();
    std::vector<vlm::vpca::Row> rows;
    vlm::vpca::MeasureLists(&rows);
    vlm::vpca::MeasureDataBlock(&rows);
    vlm::vpca::MeasureLookup(&rows);
    vlm::vpca::PrintTable(rows);
    if (json != nullptr) vlm::vpca::WriteJson(rows, json);
    return 0;
}
