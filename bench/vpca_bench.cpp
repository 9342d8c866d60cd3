// What decoding VPCA costs, against two decoders of the same trade fed with equal payloads in the same run:
// net-snmp's PDU parser and CUPS's IPP reader.
#include <net-snmp/net-snmp-config.h>
// net-snmp-config.h first.
#include <cups/ipp.h>
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench.h"
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
void Free(void* block) {
    std::free(block);
}

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kRounds = 100;
constexpr int kListRounds = 2'000;  // seconds, to meet a moment in which the core is free
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

struct ListDecoders {
    std::vector<Attribute> attributes = MakeAttributes();
    Bytes vpcaWire = EncodeVpca(attributes);
    Bytes snmpWire = EncodeSnmp(attributes);
    IppStream ippWire = EncodeIpp(attributes);

    void Vpca() {
        const ByteString text{static_cast<uint16_t>(vpcaWire.size()), vpcaWire.data()};
        AttributeList list;
        AttributeDestination destination;
        const VpcaError error =
            DecodeAttributeList(&list, &text, kLongListContext, nullptr, kVersion10, &destination);
        if (error != VpcaError::kSuccess || list.count != attributes.size()) Die("VPCA decoding fails");
        Keep(list);
    }
    void Snmp() {
        netsnmp_pdu* const pdu = snmp_pdu_create(SNMP_MSG_RESPONSE);
        size_t size = snmpWire.size();
        if (snmp_pdu_parse(pdu, snmpWire.data(), &size) != 0) Die("net-snmp decoding fails");
        Keep(*pdu);
        snmp_free_pdu(pdu);
    }
    void Ipp() {
        ippWire.position = 0;
        ipp_t* const message = ippNew();
        if (ippReadIO(&ippWire, ReadIpp, 1, nullptr, message) != IPP_STATE_DATA) Die("CUPS decoding fails");
        Keep(*message);
        ippDelete(message);
    }
};

void MeasureLists(bench::Rows* rows) {
    bench::Measuring("VPCA lists beside SNMP and IPP");
    ListDecoders decoders;
    const auto count = static_cast<double>(decoders.attributes.size());
    const auto repeat = [&](void (ListDecoders::*decode)()) {
        return [&decoders, decode](long repetitions) {
            for (long i = 0; i < repetitions; ++i)
                (decoders.*decode)();
        };
    };
    const auto ours = repeat(&ListDecoders::Vpca);
    const bench::Pair snmp = bench::BestOfBoth(kListRounds, 100, ours, repeat(&ListDecoders::Snmp));
    const bench::Pair ipp = bench::BestOfBoth(kListRounds, 100, ours, repeat(&ListDecoders::Ipp));

    rows->Add("VPCA list of 40 attributes, decode", "ns/attribute", std::min(snmp.ours, ipp.ours) / count, 15,
              "the limit", "<= 1");
    rows->Add("VPCA list against SNMP varbinds", "ns/attribute", snmp.ours / count, snmp.reference / count,
              "net-snmp snmp_pdu_parse", "<= 0.25");
    rows->Add("VPCA list against IPP attributes", "ns/attribute", ipp.ours / count, ipp.reference / count,
              "CUPS ippReadIO", "<= 0.0833");

    const long before = allocations;
    decoders.Vpca();
    rows->Add("VPCA list, memory", "allocations", static_cast<double>(allocations - before), 1, "the limit",
              "<= 1");
}

// A data block is decoded in place; what the caller of an exchange gets is decoded and copied.
void MeasureDataBlock(bench::Rows* rows) {
    bench::Measuring("VPCA data blocks");
    Bytes frame{0xCD, 0xCA, 0x10, 0x05, 0x00, 0x31, 0, 1, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 7};
    frame.resize(frame.size() + kBlockSize, 0x5A);
    Bytes destination(kBlockSize);
    const bench::Pair times = bench::BestOfBoth(
        kRounds, 100,
        [&](long repetitions) {
            for (long i = 0; i < repetitions; ++i) {
                VpcaHeader header;
                VpcaResult result;
                const VpcaError error =
                    DecodeResponse(&header, &result, {frame.data(), static_cast<uint32_t>(frame.size())});
                const auto* block = std::get_if<DataBlock>(&result.body);
                if (error != VpcaError::kSuccess || block->size != kBlockSize)
                    Die("data block decoding fails");
                std::memcpy(destination.data(), block->data, block->size);
                Keep(destination[0]);
            }
        },
        [&](long repetitions) {
            for (long i = 0; i < repetitions; ++i) {
                std::memcpy(destination.data(), frame.data() + 24, kBlockSize);
                Keep(destination[0]);
            }
        });
    rows->Add("VPCA data block of 64 KiB, decode", "ns", times.ours, times.reference,
              "memcpy of the same bytes", "<= 2");
}

void MeasureLookup(bench::Rows* rows) {
    bench::Measuring("VPCA lookups");
    const auto find = [](uint16_t id) {
        return [id](long repetitions) {
            for (long i = 0; i < repetitions; ++i) {
                // Not a constant to the compiler.
                uint16_t asked = id;
                asm volatile("" : "+r"(asked));
                const AttributeDescriptor* const found = FindAttribute(asked);
                Keep(found);
            }
        };
    };
    const bench::Pair last = bench::BestOfBoth(kRounds, 20000, find(14009), find(2));
    rows->Add("VPCA lookup of the last id", "ns", last.ours, last.reference, "lookup of the first id",
              "<= 1.5");
    const bench::Pair unknown = bench::BestOfBoth(kRounds, 20000, find(65535), find(2));
    rows->Add("VPCA lookup of an unknown id", "ns", unknown.ours, unknown.reference, "lookup of the first id",
              "<= 1.5");
}

}  // namespace
}  // namespace vlm::vpca

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    vlm::vpca::RegisterTables();
    vlm::bench::Rows rows;
    vlm::vpca::MeasureLists(&rows);
    vlm::vpca::MeasureDataBlock(&rows);
    vlm::vpca::MeasureLookup(&rows);
    return rows.WriteTo(argv[1]);
}
