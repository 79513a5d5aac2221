// Runs the parser over a public JSON conformance corpus: files named y_ must parse, n_ ones are
// rejected by a strict parser, i_ ones are left to the implementation. The parser is lenient by
// design, so every n_ file it accepts is listed below with the rule that accepts it.

#include "utilities/data/TXJSONParser.h"

#include "utilities/CodecTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

using namespace zon;
using namespace zon::test;

namespace {

namespace fs = std::filesystem;

// The parser's documented leniencies.
constexpr const char* kOptionalCommas = "commas are optional and may repeat";
constexpr const char* kTrailingText = "text after the value is not looked at";
constexpr const char* kVerbatimNumbers = "a run of number characters starting with - or a digit is taken verbatim";
constexpr const char* kLenientEscapes = "\\u is not decoded, \\U is, other escapes are dropped";
constexpr const char* kRawUnits = "any other unit in a string is taken as it is";

const std::map<std::string, std::string>& acceptedByRule()
{
    static const std::map<std::string, std::string> rules = {
        {"n_array_1_true_without_comma.json", kOptionalCommas},
        {"n_array_comma_and_number.json", kOptionalCommas},
        {"n_array_double_comma.json", kOptionalCommas},
        {"n_array_double_extra_comma.json", kOptionalCommas},
        {"n_array_extra_comma.json", kOptionalCommas},
        {"n_array_inner_array_no_comma.json", kOptionalCommas},
        {"n_array_just_comma.json", kOptionalCommas},
        {"n_array_missing_value.json", kOptionalCommas},
        {"n_array_number_and_comma.json", kOptionalCommas},
        {"n_array_number_and_several_commas.json", kOptionalCommas},
        {"n_object_several_trailing_commas.json", kOptionalCommas},
        {"n_object_trailing_comma.json", kOptionalCommas},
        {"n_object_two_commas_in_a_row.json", kOptionalCommas},

        {"n_array_comma_after_close.json", kTrailingText},
        {"n_array_extra_close.json", kTrailingText},
        {"n_multidigit_number_then_00.json", kTrailingText},
        {"n_object_trailing_comment.json", kTrailingText},
        {"n_object_trailing_comment_open.json", kTrailingText},
        {"n_object_trailing_comment_slash_open.json", kTrailingText},
        {"n_object_trailing_comment_slash_open_incomplete.json", kTrailingText},
        {"n_object_with_trailing_garbage.json", kTrailingText},
        {"n_string_with_trailing_garbage.json", kTrailingText},
        {"n_structure_array_trailing_garbage.json", kTrailingText},
        {"n_structure_array_with_extra_array_close.json", kTrailingText},
        {"n_structure_close_unopened_array.json", kTrailingText},
        {"n_structure_double_array.json", kTrailingText},
        {"n_structure_number_with_trailing_garbage.json", kTrailingText},
        {"n_structure_object_followed_by_closing_object.json", kTrailingText},
        {"n_structure_object_with_trailing_garbage.json", kTrailingText},
        {"n_structure_trailing_#.json", kTrailingText},

        {"n_array_just_minus.json", kVerbatimNumbers},
        {"n_number_-01.json", kVerbatimNumbers},
        {"n_number_-1.0..json", kVerbatimNumbers},
        {"n_number_-2..json", kVerbatimNumbers},
        {"n_number_0.1.2.json", kVerbatimNumbers},
        {"n_number_0.3e+.json", kVerbatimNumbers},
        {"n_number_0.3e.json", kVerbatimNumbers},
        {"n_number_0.e1.json", kVerbatimNumbers},
        {"n_number_0_capital_E+.json", kVerbatimNumbers},
        {"n_number_0_capital_E.json", kVerbatimNumbers},
        {"n_number_0e+.json", kVerbatimNumbers},
        {"n_number_0e.json", kVerbatimNumbers},
        {"n_number_1.0e+.json", kVerbatimNumbers},
        {"n_number_1.0e-.json", kVerbatimNumbers},
        {"n_number_1.0e.json", kVerbatimNumbers},
        {"n_number_1_000.json", kVerbatimNumbers}, // and optional commas: "1" then "000.0"
        {"n_number_1eE2.json", kVerbatimNumbers},
        {"n_number_2.e+3.json", kVerbatimNumbers},
        {"n_number_2.e-3.json", kVerbatimNumbers},
        {"n_number_2.e3.json", kVerbatimNumbers},
        {"n_number_9.e+.json", kVerbatimNumbers},
        {"n_number_expression.json", kVerbatimNumbers},
        {"n_number_invalid+-.json", kVerbatimNumbers},
        {"n_number_minus_space_1.json", kVerbatimNumbers}, // and optional commas: "-" then "1"
        {"n_number_neg_int_starting_with_zero.json", kVerbatimNumbers},
        {"n_number_neg_real_without_int_part.json", kVerbatimNumbers},
        {"n_number_real_without_fractional_part.json", kVerbatimNumbers},
        {"n_number_with_leading_zero.json", kVerbatimNumbers},

        {"n_string_1_surrogate_then_escape_u.json", kLenientEscapes},
        {"n_string_1_surrogate_then_escape_u1.json", kLenientEscapes},
        {"n_string_1_surrogate_then_escape_u1x.json", kLenientEscapes},
        {"n_string_backslash_00.json", kLenientEscapes},
        {"n_string_escape_x.json", kLenientEscapes},
        {"n_string_escaped_ctrl_char_tab.json", kLenientEscapes},
        {"n_string_escaped_emoji.json", kLenientEscapes},
        {"n_string_incomplete_escaped_character.json", kLenientEscapes},
        {"n_string_incomplete_surrogate.json", kLenientEscapes},
        {"n_string_incomplete_surrogate_escape_invalid.json", kLenientEscapes},
        {"n_string_invalid_backslash_esc.json", kLenientEscapes},
        {"n_string_invalid_unicode_escape.json", kLenientEscapes},
        {"n_string_unicode_CapitalU.json", kLenientEscapes},

        {"n_string_unescaped_ctrl_char.json", kRawUnits},
        {"n_string_unescaped_newline.json", kRawUnits},
        {"n_string_unescaped_tab.json", kRawUnits},
    };
    return rules;
}

struct CorpusFile {
    std::string name;
    Ref<String> text; // nil when the bytes are not UTF-8
};

std::vector<CorpusFile> corpus()
{
    std::vector<CorpusFile> files;
    const fs::path folder = ZON_JSON_CORPUS_DIR;
    if (!fs::is_directory(folder))
        return files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (entry.path().extension() != ".json")
            continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        files.push_back({name, String::stringWithUTF8String(bytes)});
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return files;
}

bool accepts(const String* text)
{
    bool success = false;
    TXJSONParser::JsonDecode_withSuccess(text, &success);
    return success;
}

} // namespace

TEST(TXJSONParserCorpus, EveryValidFileParses)
{
    const auto files = corpus();
    if (files.empty())
        GTEST_SKIP() << "no JSON corpus at " << ZON_JSON_CORPUS_DIR;
    for (const auto& file : files) {
        if (file.name.rfind("y_", 0) != 0)
            continue;
        ASSERT_TRUE(file.text) << file.name << " is not UTF-8";
        EXPECT_TRUE(accepts(file.text)) << file.name;
    }
}

TEST(TXJSONParserCorpus, InvalidFilesAreAcceptedOnlyByADocumentedRule)
{
    const auto files = corpus();
    if (files.empty())
        GTEST_SKIP() << "no JSON corpus at " << ZON_JSON_CORPUS_DIR;
    std::map<std::string, bool> listed;
    for (const auto& [name, rule] : acceptedByRule())
        listed[name] = false;
    for (const auto& file : files) {
        // Bytes that are not UTF-8 never become text, so the parser never sees them.
        if (file.name.rfind("n_", 0) != 0 || !file.text || !accepts(file.text))
            continue;
        auto rule = listed.find(file.name);
        if (rule == listed.end()) {
            ADD_FAILURE() << file.name << " is accepted by no documented rule";
            continue;
        }
        // The rule lands in the test report (--gtest_output=xml) beside the file.
        RecordProperty(file.name, acceptedByRule().at(file.name));
        rule->second = true;
    }
    for (const auto& [name, seen] : listed)
        EXPECT_TRUE(seen) << name << " is listed as accepted but is not (or is missing)";
}

TEST(TXJSONParserCorpus, ImplementationDefinedFilesParseOrFailCleanly)
{
    for (const auto& file : corpus()) {
        if (file.name.rfind("i_", 0) == 0 && file.text)
            accepts(file.text);
    }
}
