#include "extensions/WindowsLocaleCodeTableInternal.h"

#include <algorithm>
#include <utility>

namespace zon::localecodes {

namespace {

constexpr uint32_t kNone = kNoIdentifierKey;

constexpr uint32_t key(const char (&language)[3], const char (&country)[3] = "\0\0")
{
    return uint32_t(uint8_t(language[0])) << 24 | uint32_t(uint8_t(language[1])) << 16
        | uint32_t(uint8_t(country[0])) << 8 | uint32_t(uint8_t(country[1]));
}

constexpr std::array<Row, kRowCount> kRows {{
    {0x0000, 0}, {0x0000, 0}, {0x0436, key("af")}, {0x041c, key("sq")}, {0x045e, key("am")},
    {0x0001, key("ar")}, {0x0401, key("ar", "SA")}, {0x1401, key("ar", "DZ")},
    {0x3c01, key("ar", "BH")}, {0x0c01, key("ar", "EG")}, {0x0801, key("ar", "IQ")},
    {0x2c01, key("ar", "JO")}, {0x3401, key("ar", "KW")}, {0x3001, key("ar", "LB")},
    {0x1001, key("ar", "LY")}, {0x1801, key("ar", "MA")}, {0x2001, key("ar", "OM")},
    {0x4001, key("ar", "QA")}, {0x2801, key("ar", "SY")}, {0x1c01, key("ar", "TN")},
    {0x3801, key("ar", "AE")}, {0x2401, key("ar", "YE")}, {0x042b, key("hy")}, {0x044d, key("as")},
    {0x042c, key("az")}, {0x082c, key("az")}, {0x042d, key("eu")}, {0x0423, key("be")},
    {0x0045, key("bn")}, {0x0445, key("bn", "IN")}, {0x0845, key("bn", "BD")},
    {0x141a, key("bs", "BA")}, {0x0402, key("bg")}, {0x0455, key("my")}, {0x0403, key("ca")},
    {0x045c, kNone}, {0x0004, key("zh")}, {0x0804, key("zh", "CN")}, {0x1004, key("zh", "SG")},
    {0x0404, key("zh", "TW")}, {0x0c04, key("zh", "HK")}, {0x1404, key("zh", "MO")},
    {0x041a, key("hr")}, {0x101a, key("hr", "BA")}, {0x0405, key("cs")}, {0x0406, key("da")},
    {0x0465, key("dv")}, {0x0013, key("nl")}, {0x0413, key("nl", "NL")}, {0x0813, key("nl", "BE")},
    {0x0466, kNone}, {0x0009, key("en")}, {0x0409, key("en", "US")}, {0x0809, key("en", "GB")},
    {0x0c09, key("en", "AU")}, {0x2809, key("en", "BZ")}, {0x1009, key("en", "CA")},
    {0x2409, key("en")}, {0x3c09, key("en", "HK")}, {0x4009, key("en", "IN")},
    {0x3809, key("en", "ID")}, {0x1809, key("en", "IE")}, {0x2009, key("en", "JM")},
    {0x4409, key("en", "MY")}, {0x1409, key("en", "NZ")}, {0x3409, key("en", "PH")},
    {0x4809, key("en", "SG")}, {0x1c09, key("en", "ZA")}, {0x2c09, key("en", "TT")},
    {0x3009, key("en", "ZW")}, {0x0e09, key("en", "NL")}, {0x0425, key("et")}, {0x0438, key("fo")},
    {0x0429, key("fa")}, {0x0464, key("tl")}, {0x040b, key("fi")}, {0x000c, key("fr")},
    {0x040c, key("fr", "FR")}, {0x080c, key("fr", "BE")}, {0x2c0c, key("fr", "CM")},
    {0x0c0c, key("fr", "CA")}, {0x240c, key("fr", "CD")}, {0x300c, key("fr", "CI")},
    {0x3c0c, key("fr", "HT")}, {0x140c, key("fr", "LU")}, {0x340c, key("fr", "ML")},
    {0x180c, key("fr", "MC")}, {0x380c, key("fr", "MA")}, {0xe40c, key("fr")}, {0x200c, key("fr")},
    {0x280c, key("fr", "SN")}, {0x100c, key("fr", "CH")}, {0x1c0c, key("fr")},
    {0x0462, key("fy", "NL")}, {0x0467, key("ff")}, {0x042f, key("mk")}, {0x083c, key("gd", "IE")},
    {0x043c, key("gd")}, {0x0456, key("gl")}, {0x0437, key("ka")}, {0x0007, key("de")},
    {0x0407, key("de", "DE")}, {0x0c07, key("de", "AT")}, {0x1407, key("de", "LI")},
    {0x1007, key("de", "LU")}, {0x0807, key("de", "CH")}, {0x0408, key("el")}, {0x0474, key("gn")},
    {0x0447, key("gu")}, {0x0468, key("ha")}, {0x0475, kNone}, {0x040d, key("he")},
    {0x0439, key("hi")}, {0x040e, key("hu")}, {0x0469, kNone}, {0x040f, key("is")},
    {0x0470, key("ig")}, {0x0421, key("id")}, {0x045d, key("iu")}, {0x0010, key("it")},
    {0x0410, key("it", "IT")}, {0x0810, key("it", "CH")}, {0x0411, key("ja")}, {0x044b, key("kn")},
    {0x0471, key("kr")}, {0x0860, key("ks", "IN")}, {0x0460, key("ks")}, {0x043f, key("kk")},
    {0x0453, key("km")}, {0x0457, kNone}, {0x0412, key("ko")}, {0x0440, key("ky")},
    {0x0454, key("lo")}, {0x0476, key("la")}, {0x0426, key("lv")}, {0x0427, key("lt")},
    {0x0827, key("lt")}, {0x003e, key("ms")}, {0x043e, key("ms", "MY")}, {0x083e, key("ms", "BN")},
    {0x044c, key("ml")}, {0x043a, key("mt")}, {0x0458, kNone}, {0x0481, key("mi")},
    {0x044e, key("mr")}, {0x0050, key("mn")}, {0x0450, key("mn", "MN")}, {0x0850, key("mn", "CN")},
    {0x0061, key("ne")}, {0x0461, key("ne", "NP")}, {0x0861, key("ne", "IN")}, {0x0414, key("no")},
    {0x0814, key("no")}, {0x0448, key("or")}, {0x0472, key("om")}, {0x0479, kNone},
    {0x0463, key("ps")}, {0x0415, key("pl")}, {0x0016, key("pt")}, {0x0416, key("pt", "BR")},
    {0x0816, key("pt", "PT")}, {0x0046, key("pa")}, {0x0446, key("pa", "IN")},
    {0x0846, key("pa", "PK")}, {0x006b, key("qu")}, {0x046b, key("qu", "BO")},
    {0x086b, key("qu", "EC")}, {0x0c6b, key("qu", "PE")}, {0x0417, key("rm")}, {0x0018, key("ro")},
    {0x0418, key("ro", "RO")}, {0x0818, key("ro", "MD")}, {0x0019, key("ru")},
    {0x0419, key("ru", "RU")}, {0x0819, key("ru", "MD")}, {0x043b, key("se")}, {0x044f, key("sa")},
    {0x046c, kNone}, {0x0c1a, key("sr")}, {0x081a, key("sr")}, {0x0059, key("sd")},
    {0x0459, key("sd", "IN")}, {0x0859, key("sd", "PK")}, {0x045b, key("si")}, {0x041b, key("sk")},
    {0x0424, key("sl")}, {0x0477, key("so")}, {0x042e, kNone}, {0x082e, kNone}, {0x000a, key("es")},
    {0x0c0a, key("es")}, {0x040a, key("es", "ES")}, {0x2c0a, key("es", "AR")},
    {0x400a, key("es", "BO")}, {0x340a, key("es", "CL")}, {0x240a, key("es", "CO")},
    {0x140a, key("es", "CR")}, {0x1c0a, key("es", "DO")}, {0x300a, key("es", "EC")},
    {0x440a, key("es", "SV")}, {0x100a, key("es", "GT")}, {0x480a, key("es", "HN")},
    {0x580a, key("es")}, {0x080a, key("es", "MX")}, {0x4c0a, key("es", "NI")},
    {0x180a, key("es", "PA")}, {0x3c0a, key("es", "PY")}, {0x280a, key("es", "PE")},
    {0x500a, key("es", "PR")}, {0x540a, key("es", "US")}, {0x380a, key("es", "UY")},
    {0x200a, key("es", "VE")}, {0x0430, kNone}, {0x0441, key("sw")}, {0x001d, key("sv")},
    {0x041d, key("sv", "SE")}, {0x081d, key("sv", "FI")}, {0x045a, kNone}, {0x0428, key("tg")},
    {0x045f, kNone}, {0x085f, kNone}, {0x0449, key("ta")}, {0x0444, key("tt")}, {0x044a, key("te")},
    {0x041e, key("th")}, {0x0051, key("bo")}, {0x0851, key("bo", "BT")}, {0x0451, key("bo", "CN")},
    {0x0073, key("ti")}, {0x0873, key("ti", "ER")}, {0x0473, key("ti", "ET")}, {0x0431, key("ts")},
    {0x0432, key("tn")}, {0x041f, key("tr")}, {0x0442, key("tk")}, {0x0480, key("ug")},
    {0x0422, key("uk")}, {0x0020, key("ur")}, {0x0820, key("ur", "IN")}, {0x0420, key("ur", "PK")},
    {0x0443, key("uz")}, {0x0433, key("ve")}, {0x042a, key("vi")}, {0x0452, key("cy")},
    {0x0434, key("xh")}, {0x0478, key("ii")}, {0x043d, key("yi")}, {0x046a, key("yo")},
    {0x0435, key("zu")}
}};

// (value, row) pairs sorted by value, the first row kept where values repeat, so a binary search
// answers what a search of the table from its first row answers.
struct IndexEntry {
    uint32_t value;
    uint16_t row;
};

template <typename ValueOf>
constexpr auto makeIndex(ValueOf valueOf)
{
    std::array<IndexEntry, kRowCount> entries {};
    for (size_t row = 0; row < kRowCount; ++row)
        entries[row] = {valueOf(kRows[row]), uint16_t(row)};
    std::sort(entries.begin(), entries.end(),
        [](IndexEntry a, IndexEntry b) { return a.value != b.value ? a.value < b.value : a.row < b.row; });
    return entries;
}

constexpr auto kByKey = makeIndex([](Row row) { return row.key; });
constexpr auto kByCode = makeIndex([](Row row) { return row.code; });

std::optional<size_t> find(const std::array<IndexEntry, kRowCount>& index, uint32_t value)
{
    auto found = std::lower_bound(
        index.begin(), index.end(), value, [](IndexEntry entry, uint32_t wanted) { return entry.value < wanted; });
    if (found == index.end() || found->value != value)
        return std::nullopt;
    return found->row;
}

} // namespace

const std::array<Row, kRowCount>& rows()
{
    return kRows;
}

std::optional<size_t> firstRowWithKey(uint32_t key)
{
    return find(kByKey, key);
}

std::optional<size_t> rowWithCode(uint32_t code)
{
    return find(kByCode, code);
}

} // namespace zon::localecodes
