// Desktop Entry quoting and escaping, and the reader that parses it back.

#include <gtest/gtest.h>

#include "core/DesktopEntry.h"

using namespace lorvane::desktopentry;

TEST(DesktopEntryExec, PlainPathsStayAsTheyAre) {
    EXPECT_EQ(execValue({"/usr/bin/lorvane", "--background"}), "/usr/bin/lorvane --background");
}

TEST(DesktopEntryExec, ReservedCharactersAreQuotedAndEscaped) {
    EXPECT_EQ(quoteExecArgument("/home/a b/lorvane"), "\"/home/a b/lorvane\"");
    EXPECT_EQ(quoteExecArgument("/x/a\"b"), "\"/x/a\\\"b\"");
    EXPECT_EQ(quoteExecArgument("/x/`id`"), "\"/x/\\`id\\`\"");
    EXPECT_EQ(quoteExecArgument("/x/$HOME"), "\"/x/\\$HOME\"");
    EXPECT_EQ(quoteExecArgument("/x/a\\b"), "\"/x/a\\\\b\"");
    EXPECT_EQ(quoteExecArgument("/x/50%"), "\"/x/50%%\"");
    EXPECT_EQ(quoteExecArgument(""), "\"\"");
    // The value as a whole escapes each backslash once more.
    EXPECT_EQ(execValue({"/x/a\"b"}), "\"/x/a\\\\\"b\"");
}

TEST(DesktopEntryExec, CharactersNoEntryCanCarryAreRefused) {
    EXPECT_EQ(quoteExecArgument("/x/a\nExec=rm -rf ~"), std::nullopt);
    EXPECT_EQ(quoteExecArgument("/x/a\rb"), std::nullopt);
    EXPECT_EQ(quoteExecArgument("/x/a\tb"), std::nullopt);
    EXPECT_EQ(quoteExecArgument(std::string("/x/a\0b", 6)), std::nullopt);
    EXPECT_EQ(quoteExecArgument("/x/\xff\xfe"), std::nullopt);
    EXPECT_EQ(execValue({"/usr/bin/lorvane", "a\nb"}), std::nullopt);
    EXPECT_EQ(escapeStringValue("two\nlines"), std::nullopt);
}

TEST(DesktopEntryExec, EveryHostilePathRoundTrips) {
    const std::vector<std::string> paths{
        "/usr/bin/lorvane", "/home/a b/lorvane", "/home/it's/lorvane", "/t/a \"q\" b/lorvane", "/t/$(id)/`x`",
        "/t/back\\slash/lorvane", "/t/100%/lorvane", "/t/~user/;&|<>*?#()", "/t/ünïcødé/λ", "/t/=/[Desktop Entry]"};
    for (const std::string& path : paths) {
        const auto value = execValue({path, "--background"});
        ASSERT_TRUE(value) << path;
        EXPECT_EQ(value->find('\n'), std::string::npos);
        const auto parsed = parseExecValue(*value);
        ASSERT_TRUE(parsed) << *value;
        EXPECT_EQ(*parsed, (std::vector<std::string>{path, "--background"})) << *value;
    }
}

TEST(DesktopEntryExec, MalformedValuesParseToNothing) {
    EXPECT_EQ(parseExecValue("\"/unterminated"), std::nullopt);
    EXPECT_EQ(parseExecValue("/a;rm"), std::nullopt);
    EXPECT_EQ(parseExecValue("\"/a\\q\""), std::nullopt);
    EXPECT_EQ(parseExecValue(""), std::nullopt);
    // Field codes make no argument.
    EXPECT_EQ(parseExecValue("/usr/bin/x %U"), (std::vector<std::string>{"/usr/bin/x"}));
}

TEST(DesktopEntryReader, GroupsKeysAndDuplicates) {
    const auto entry = parse(
        "# comment\n[Desktop Entry]\nType=Application\nExec=/a\nExec=/b\nName = Lorvane \n\n[Other]\nExec=/c\nnot a "
        "pair\n");
    EXPECT_TRUE(entry.isDesktopEntry());
    EXPECT_EQ(entry.value("Exec"), "/a");
    EXPECT_EQ(entry.value("Name"), "Lorvane");
    EXPECT_EQ(entry.duplicateKeys, 1);
    EXPECT_EQ(entry.malformedLines, 1);
    EXPECT_EQ(entry.groups.at("Other").at("Exec"), "/c");
    EXPECT_FALSE(parse("garbage\n[Desktop Entry]\n").isDesktopEntry() && parse("garbage").isDesktopEntry());
    EXPECT_FALSE(parse("[Other]\nExec=/a\n").isDesktopEntry());
}

TEST(DesktopEntryString, EscapesRoundTrip) {
    for (const std::string text : {"plain", " leading", "back\\slash", "a=b"}) {
        const auto escaped = escapeStringValue(text);
        ASSERT_TRUE(escaped);
        EXPECT_EQ(unescapeStringValue(*escaped), text);
    }
}
