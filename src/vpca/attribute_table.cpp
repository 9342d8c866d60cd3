#include "vpca/attribute_table.h"

namespace vlm::vpca {

namespace {

// Every known id, as ranges from first to last.
constexpr struct {
    uint16_t first;
    uint16_t last;
} kKnownIds[] = {
    {2, 4},         {6, 14},        {16, 16},       {18, 20},       {23, 25},       {27, 32},
    {35, 37},       {39, 39},       {44, 54},       {57, 60},       {63, 68},       {72, 78},
    {80, 81},       {83, 89},       {91, 92},       {95, 95},       {99, 109},      {111, 113},
    {115, 118},     {121, 126},     {129, 130},     {132, 133},     {135, 136},     {138, 138},
    {144, 144},     {146, 147},     {156, 158},     {160, 161},     {165, 176},     {178, 181},
    {185, 187},     {190, 190},     {194, 195},     {197, 199},     {202, 204},     {207, 222},
    {224, 234},     {236, 255},     {259, 259},     {261, 264},     {266, 294},     {296, 297},
    {299, 347},     {1001, 1003},   {1007, 1013},   {1016, 1019},   {1028, 1030},   {1034, 1035},
    {1038, 1039},   {1044, 1047},   {1049, 1060},   {1062, 1083},   {1085, 1096},   {2001, 2010},
    {2014, 2025},   {2027, 2027},   {2029, 2032},   {2038, 2038},   {2040, 2042},   {2044, 2046},
    {2049, 2052},   {2054, 2054},   {2057, 2060},   {2062, 2065},   {2072, 2072},   {2074, 2076},
    {2078, 2080},   {2082, 2088},   {2090, 2093},   {2095, 2095},   {2097, 2100},   {2103, 2106},
    {2109, 2110},   {2112, 2115},   {2120, 2127},   {2131, 2132},   {2135, 2135},   {2137, 2144},
    {2149, 2159},   {2163, 2196},   {2198, 2206},   {2208, 2234},   {2236, 2405},   {3001, 3005},
    {3013, 3020},   {3023, 3024},   {3033, 3035},   {3040, 3040},   {3049, 3051},   {3053, 3058},
    {3064, 3065},   {3067, 3075},   {3077, 3079},   {3096, 3097},   {3109, 3113},   {3118, 3118},
    {3124, 3128},   {3137, 3140},   {3142, 3145},   {3147, 3147},   {3149, 3150},   {3152, 3152},
    {3154, 3177},   {3179, 3189},   {3191, 3196},   {3198, 3201},   {3204, 3221},   {4002, 4006},
    {4008, 4020},   {4023, 4032},   {4034, 4044},   {4115, 4116},   {4118, 4118},   {4120, 4125},
    {4127, 4132},   {5001, 5008},   {6001, 6030},   {10401, 10402}, {10422, 10423}, {10601, 10601},
    {10610, 10610}, {10617, 10633}, {10635, 10653}, {10909, 10911}, {11001, 11001}, {11003, 11015},
    {11501, 11503}, {11505, 11520}, {11601, 11615}, {11701, 11703}, {11705, 11708}, {11714, 11716},
    {11801, 11804}, {11806, 11809}, {11811, 11814}, {11901, 11917}, {12001, 12003}, {12005, 12009},
    {12501, 12512}, {13001, 13003}, {14001, 14009},
};

// Every other known id is opaque. Unused places of a row hold 0, which is no id.
constexpr struct {
    AttributeLayout layout;
    uint16_t ids[7];
} kKnownLayouts[] = {
    {AttributeLayout::kAddressValueList, {6012, 6016}},
    {AttributeLayout::kAddressList, {144, 146, 199, 261, 266, 300, 1080}},
    {AttributeLayout::kTextRecord, {2112, 2173, 2174}},
    {AttributeLayout::kRaw8, {180}},
    {AttributeLayout::kRaw28, {2405}},
};

constexpr std::array<AttributeLayout, kIdLimit> MakeLayouts() {
    std::array<AttributeLayout, kIdLimit> layouts{};
    layouts.fill(AttributeLayout::kUnknownId);
    for (const auto& range : kKnownIds) {
        for (size_t id = range.first; id <= range.last; ++id)
            layouts[id] = AttributeLayout::kOpaque;
    }
    for (const auto& known : kKnownLayouts) {
        for (const uint16_t id : known.ids) {
            if (id != 0) layouts[id] = known.layout;
        }
    }
    return layouts;
}

constexpr uint16_t kStructures[] = {3, 22, 7, 5, 9, 8, 2, 6, 4, 20, 23, 21, 24, 25};

}  // namespace

constexpr std::array<AttributeLayout, kIdLimit> kLayoutOfId = MakeLayouts();

const AttributeDescriptor* FindStructure(uint16_t subId, uint8_t) {
    if (!TablesRegistered()) return nullptr;
    for (const uint16_t known : kStructures) {
        if (known == subId) return &kLayouts[static_cast<uint8_t>(AttributeLayout::kOpaque)];
    }
    return nullptr;
}

}  // namespace vlm::vpca
