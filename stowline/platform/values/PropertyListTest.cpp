#include "stowline/platform/values/PropertyList.h"

#include "stowline/platform/files/Files.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <functional>
#include <limits>

namespace stowline::platform {
namespace {

std::string document(const std::string& content)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n" + content +
           "\n</plist>\n";
}

Value everyKind()
{
    return Dictionary{{"text", "grüße <&> 😀"},
                      {"data", Data{0, 1, 255}},
                      {"yes", true},
                      {"no", false},
                      {"small", 7},
                      {"negative", -5},
                      {"lowest", INT64_MIN},
                      {"largest", 18446744073709551615ULL},
                      {"real", 1.25},
                      {"date", Date(std::chrono::seconds(1'700'000'000))},
                      {"list", Array{1, Array{}, Dictionary{}}},
                      {"empty", ""}};
}

TEST(PropertyList, XmlKeepsEveryKind)
{
    const auto text = writeXmlPropertyList(everyKind());
    ASSERT_TRUE(text);
    const auto reading = readPropertyList(*text);
    EXPECT_EQ(reading.fault, "");
    EXPECT_EQ(reading.value, everyKind());
}

TEST(PropertyList, BinaryKeepsEveryKind)
{
    const auto bytes = writeBinaryPropertyList(everyKind());
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->starts_with("bplist00"));
    EXPECT_EQ(readPropertyList(*bytes).value, everyKind());
}

TEST(PropertyList, NulInATextIsRefusedRatherThanCut)
{
    const Value value(std::string("a\0b", 3));
    EXPECT_FALSE(writeBinaryPropertyList(value));
    EXPECT_FALSE(writeBinaryPropertyList(Array{Dictionary{{"k", value}}}));
    EXPECT_FALSE(writeXmlPropertyList(value));
}

TEST(PropertyList, TextThatIsNotUtf8IsRefusedRatherThanGarbled)
{
    EXPECT_FALSE(writeBinaryPropertyList(Value("\xf7\x0e")));
    EXPECT_FALSE(writeBinaryPropertyList(Dictionary{{"\xff", 1}}));
    EXPECT_FALSE(writeXmlPropertyList(Value("\xff")));
}

TEST(PropertyList, ReadsNumbersInEveryNotation)
{
    const auto value = readPropertyList(document("<array><integer> 0x1F </integer>"
                                                 "<integer>+3</integer><real>1e3</real></array>"))
                           .value;
    EXPECT_EQ(value, Value(Array{31, 3, 1000.0}));
}

TEST(PropertyList, TellsTheLineOfAFault)
{
    struct Case {
        const char* content;
        const char* fault;
    };
    for (const Case& wrong : {
             Case{"<dict>\n<key>a</key>\n</dict>", "line 5: The key \"a\" has no value"},
             Case{"<dict>\n<string>x</string></dict>",
                  "line 4: <string> stands in a <dict> without a <key> before it"},
             Case{"<array>\n\n<integer>x1</integer></array>",
                  "line 5: \"x1\" is not a value for <integer>"},
             Case{"<data>***</data>", "line 3: \"***\" is not a value for <data>"},
             Case{"<date>today</date>", "line 3: \"today\" is not a value for <date>"},
             Case{"<html/>", "line 3: <html> is not an element of a property list"},
             Case{"<string/><string/>", "line 3: <plist> holds more than one value"},
             Case{"<string><b/></string>", "line 3: <b> stands inside <string>"},
             Case{"<key>k</key>", "line 3: <key> stands outside a <dict>"},
             Case{"", "line 4: <plist> holds no value"},
         }) {
        const auto reading = readPropertyList(document(wrong.content));
        EXPECT_FALSE(reading.value);
        EXPECT_EQ(reading.fault, wrong.fault);
    }
}

TEST(PropertyList, TellsTheLineOfMalformedXml)
{
    EXPECT_EQ(readPropertyList("<plist>\n<dict>\n</plist>").fault.rfind("line 3: ", 0), 0U);
    EXPECT_NE(readPropertyList("").fault, "");
    EXPECT_NE(readPropertyList("not XML").fault, "");
    EXPECT_EQ(readPropertyList("<html/>").fault,
              "line 1: The document is not a property list: it starts with <html>");
}

TEST(PropertyList, AcceptsABareDoctypeOnly)
{
    const std::string list = "<plist version=\"1.0\"><string>x</string></plist>";
    EXPECT_EQ(readPropertyList("<!DOCTYPE plist SYSTEM \"file:///etc/passwd\">" + list).value,
              Value("x"));
    EXPECT_FALSE(readPropertyList("<!DOCTYPE plist [<!ENTITY a \"b\">]>" + list).value.has_value());
}

TEST(PropertyList, NotesLinesAndRepeatedKeys)
{
    PropertyListSource source;
    const auto reading =
        readPropertyList(document("<dict>\n<key>a</key>\n<array>\n<dict>\n<key>n</key>\n"
                                  "<string>1</string>\n<key>n</key>\n<string>2</string>\n"
                                  "</dict></array></dict>"),
                         &source);
    ASSERT_TRUE(reading.value);
    EXPECT_EQ(source.lines.at("a"), 5);
    EXPECT_EQ(source.lines.at("a[0].n"), 10);
    EXPECT_EQ(source.repeatedKeys, std::vector<std::string>{"a[0].n"});
    EXPECT_EQ(valueAtKeyPath(*reading.value, "a.n"), Value(Array{"2"}));
}

TEST(PropertyList, NestingIsBounded)
{
    std::string deep;
    for (int i = 0; i < 2000; ++i)
        deep += "<array>";
    EXPECT_NE(readPropertyList(document(deep)).fault.find("nested deeper"), std::string::npos);
}

// ---- hostile binary lists ----

/// A binary list from hand-made objects with two-byte references.
std::string binaryList(const std::vector<std::string>& objects, std::size_t top = 0)
{
    const auto number = [](std::size_t value, int size) {
        std::string bytes;
        for (int shift = (size - 1) * 8; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<char>(value >> shift & 0xFF));
        return bytes;
    };
    std::string list = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += number(list.size(), 4);
        list += object;
    }
    const std::size_t tableStart = list.size();
    return list + table + std::string(6, '\0') + number(4, 1) + number(2, 1) +
           number(objects.size(), 8) + number(top, 8) + number(tableStart, 8);
}

std::string reference(std::size_t object)
{
    return {static_cast<char>(object >> 8), static_cast<char>(object & 0xFF)};
}

TEST(BinaryPropertyList, HandMadeListIsRead)
{
    EXPECT_EQ(readPropertyList(binaryList({"\xa1" + reference(1), "\x51z"})).value,
              Value(Array{"z"}));
}

TEST(BinaryPropertyList, CutAtEveryLengthIsRefused)
{
    const std::string whole = writeBinaryPropertyList(everyKind()).value();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        std::string cut = whole.substr(0, length);
        if (cut.size() < 6)
            cut = "bplist"; // else it would be taken for XML
        EXPECT_FALSE(readPropertyList(cut).value) << length;
    }
}

TEST(BinaryPropertyList, EveryChangedByteIsSurvived)
{
    const std::string whole = writeBinaryPropertyList(everyKind()).value();
    for (std::size_t at = 8; at < whole.size(); ++at) {
        for (const int change : {0x01, 0x80, 0xFF}) {
            std::string changed = whole;
            changed[at] = static_cast<char>(changed[at] ^ change);
            (void)readPropertyList(changed);
        }
    }
}

TEST(BinaryPropertyList, CyclesAreRefused)
{
    EXPECT_EQ(readPropertyList(binaryList({"\xa1" + reference(0)})).fault,
              "The binary property list contains itself");
    EXPECT_FALSE(
        readPropertyList(binaryList({"\xa1" + reference(1), "\xa1" + reference(0)})).value);
}

TEST(BinaryPropertyList, DeepNestingIsRefused)
{
    std::vector<std::string> objects;
    for (std::size_t i = 1; i <= 20000; ++i)
        objects.push_back("\xa1" + reference(i));
    objects.emplace_back("\x51z");
    EXPECT_EQ(readPropertyList(binaryList(objects)).fault,
              "The binary property list is nested deeper than 512");
}

TEST(BinaryPropertyList, DeepNestingByPartsThatWereMetBeforeIsRefused)
{
    // The root holds every list; each but the first holds the one before it.
    constexpr std::size_t lists = 600;
    std::string root = "\xaf\x11";
    root += {static_cast<char>(lists >> 8U), static_cast<char>(lists & 0xFFU)};
    std::vector<std::string> objects(1);
    for (std::size_t i = 1; i <= lists; ++i) {
        root += reference(i);
        objects.push_back(i == 1 ? std::string("\xa0") : "\xa1" + reference(i - 1));
    }
    objects[0] = root;
    objects.emplace_back("\x5f\x12" + std::string("\0\x02\0\0", 4) + std::string(131072, 'x'));
    EXPECT_EQ(readPropertyList(binaryList(objects)).fault,
              "The binary property list is nested deeper than 512");
}

TEST(BinaryPropertyList, ExplodingListIsRefused)
{
    std::vector<std::string> objects;
    for (std::size_t level = 1; level <= 9; ++level) {
        std::string array = "\xaa";
        for (int i = 0; i < 10; ++i)
            array += reference(level);
        objects.push_back(array);
    }
    objects.emplace_back("\x51z");
    EXPECT_EQ(readPropertyList(binaryList(objects)).fault,
              "The binary property list expands to more than it may");
}

TEST(BinaryPropertyList, UnknownKindsAndStrayReferencesAreRefused)
{
    EXPECT_FALSE(readPropertyList(binaryList({"\x70"})).value);
    EXPECT_FALSE(readPropertyList(binaryList({"\xa1" + reference(9)})).value);
    EXPECT_FALSE(
        readPropertyList(binaryList({std::string("\x5f\x13\xff\xff\xff\xff\xff\xff\xff\xff")}))
            .value);
    EXPECT_FALSE(readPropertyList(binaryList({"\x51z"}, 5)).value);
}

TEST(BinaryPropertyList, KeysThatAreNoTextAreRefused)
{
    const std::string value = "\x51v";
    const auto withKey = [&](const std::string& key) {
        return readPropertyList(binaryList({"\xd1" + reference(1) + reference(2), key, value}));
    };
    EXPECT_EQ(withKey("\x51k").value, Value(Dictionary{{"k", "v"}}));
    EXPECT_EQ(withKey(std::string("\x52k\0", 3)).fault,
              "A key of the binary property list holds a NUL character");
    EXPECT_EQ(withKey(std::string("\x61\0\0", 3)).fault,
              "A key of the binary property list holds a NUL character");
    EXPECT_EQ(withKey("\x10\x05").fault, "A key of the binary property list is not text");
}

TEST(PropertyList, CannotHoldAUrl)
{
    const Dictionary root{{"address", Url::fromText("https://h/").value()}};
    EXPECT_FALSE(writeXmlPropertyList(root));
    EXPECT_FALSE(writeBinaryPropertyList(root));
}

// ---- large, shared, foreign ----

/// A listing as services send it: many entries of a few texts.
Value listing(std::size_t entries)
{
    Array items;
    for (std::size_t i = 0; i < entries; ++i)
        items.emplace_back(Dictionary{{"name", "file " + std::to_string(i)},
                                      {"size", std::to_string(i * 7)},
                                      {"isFolder", "false"},
                                      {"note", i % 2 == 0 ? "" : "größer 🙂"}});
    return Dictionary{{"result", Dictionary{{"entry", std::move(items)}}}};
}

/// Processor time of the fastest of some tries.
std::clock_t timeOf(const std::function<void()>& work)
{
    std::clock_t best = std::numeric_limits<std::clock_t>::max();
    for (int i = 0; i < 3; ++i) {
        const std::clock_t start = std::clock();
        work();
        best = std::min(best, std::clock() - start);
    }
    return best;
}

TEST(BinaryPropertyList, TakesTimeInProportionToItsLength)
{
    constexpr std::size_t few = 1'000;
    constexpr std::size_t many = 16'000;
    const Value small = listing(few);
    const Value large = listing(many);
    const std::string smallBytes = writeBinaryPropertyList(small).value();
    const std::string largeBytes = writeBinaryPropertyList(large).value();
    EXPECT_LT(largeBytes.size(), 25 * smallBytes.size()); // its references take more bytes
    constexpr std::clock_t most = 16 * 5;                 // quadratic would be 256
    EXPECT_LT(timeOf([&] { (void)writeBinaryPropertyList(large); }),
              most * timeOf([&] { (void)writeBinaryPropertyList(small); }));
    EXPECT_LT(timeOf([&] { (void)readPropertyList(largeBytes); }),
              most * timeOf([&] { (void)readPropertyList(smallBytes); }));
    EXPECT_EQ(readPropertyList(largeBytes).value, large);
}

TEST(BinaryPropertyList, ContainersThatStandTwiceAreWrittenOnce)
{
    const Value shared = listing(1000);
    const std::size_t once = writeBinaryPropertyList(Array{shared}).value().size();
    const std::string twice = writeBinaryPropertyList(Array{shared, shared}).value();
    EXPECT_LT(twice.size(), once + 10);
    EXPECT_EQ(readPropertyList(twice).value, Value(Array{shared, shared}));
}

TEST(BinaryPropertyList, ManyEqualTextsMayStandTwice)
{
    const Value nothing(Array(100'000, Value("")));
    const std::string bytes = writeBinaryPropertyList(Array{nothing, nothing}).value();
    EXPECT_EQ(readPropertyList(bytes).value, Value(Array{nothing, nothing}));
}

TEST(BinaryPropertyList, NumbersOfEverySizeComeBack)
{
    Array numbers;
    for (int bit = 0; bit < 64; ++bit) {
        const std::uint64_t power = std::uint64_t(1) << bit;
        numbers.emplace_back(power);
        numbers.emplace_back(power - 1);
        numbers.emplace_back(static_cast<std::int64_t>(power));
        numbers.emplace_back(-static_cast<std::int64_t>(power - 1));
        numbers.emplace_back(std::ldexp(1.0, bit) + 0.5);
    }
    numbers.emplace_back(std::numeric_limits<std::uint64_t>::max());
    const auto bytes = writeBinaryPropertyList(numbers);
    EXPECT_EQ(readPropertyList(bytes.value()).value, Value(numbers));
}

TEST(BinaryPropertyList, TextsOfEveryLengthAndPlaneComeBack)
{
    Dictionary texts;
    for (std::size_t length = 0; length < 300; ++length) {
        texts.emplace("a" + std::to_string(length), std::string(length, 'x'));
        std::string wide;
        for (std::size_t i = 0; i < length; ++i)
            wide += i % 3 == 0 ? "é" : i % 3 == 1 ? "€" : "🙂";
        texts.emplace("é" + std::to_string(length), wide);
    }
    texts.emplace("long", std::string(70'000, 'y'));
    texts.emplace("data", Data(70'000, 0xFF));
    const auto bytes = writeBinaryPropertyList(texts);
    EXPECT_EQ(readPropertyList(bytes.value()).value, Value(texts));
}

TEST(BinaryPropertyList, WhatIsTooDeepToReadIsNotWritten)
{
    Value deep("x");
    for (int i = 0; i < 512; ++i)
        deep = Array{deep};
    EXPECT_TRUE(readPropertyList(writeBinaryPropertyList(deep).value()).value);
    EXPECT_FALSE(writeBinaryPropertyList(Array{deep}));
}

TEST(BinaryPropertyList, AnotherLanguageReadsAndWritesIt)
{
    const test::TemporaryFolder folder;
    const Date moment(std::chrono::microseconds(1'700'000'000'250'000));
    const Value value(Dictionary{{"text", "größer 🙂"},
                                 {"list", Array{1, -1, 300, 70'000, std::int64_t(1) << 40}},
                                 {"large", std::numeric_limits<std::uint64_t>::max()},
                                 {"real", 0.1},
                                 {"truth", true},
                                 {"moment", moment},
                                 {"data", Data{0, 1, 255}},
                                 {"many", listing(1000)}});
    const auto ours = folder.write("ours", writeBinaryPropertyList(value).value());
    const auto theirs = folder.path() / "theirs";
    const auto run = test::runProgram(
        {{"/usr/bin/python3", "-c",
          "import plistlib, sys\n"
          "root = plistlib.load(open(sys.argv[1], 'rb'))\n"
          "assert root['text'] == 'gr\\u00f6\\u00dfer \\U0001f642', root['text']\n"
          "assert root['list'] == [1, -1, 300, 70000, 2**40] and root['large'] == 2**64 - 1\n"
          "assert root['truth'] is True and root['real'] == 0.1 and root['data'] == "
          "b'\\0\\1\\xff'\n"
          "assert root['moment'].timestamp and root['moment'].microsecond == 250000\n"
          "assert len(root['many']['result']['entry']) == 1000\n"
          "plistlib.dump(root, open(sys.argv[2], 'wb'), fmt=plistlib.FMT_BINARY)\n",
          ours.string(), theirs.string()}});
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(readPropertyList(readFile(theirs).value()).value, value);
}

} // namespace
} // namespace stowline::platform
