// Reading the documents vellmarkctl sends: bounded, checked as JSON while read, and with
// the line and column of what is wrong.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "tools/Command.h"
#include "tools/DocumentInput.h"

namespace Vellmark::Ctl {
namespace {

class DocumentInput : public ::testing::Test {
protected:
    DocumentInput() {
        char pattern[] = "/tmp/vellmark-ctl-XXXXXX";
        m_folder = ::mkdtemp(pattern);
    }
    ~DocumentInput() override { std::filesystem::remove_all(m_folder); }

    std::string Write(std::string const& text) {
        std::string const path = m_folder + "/document.json";
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    // The message of the BadInput that reading `text` throws; "" when none.
    std::string Refusal(std::string const& text, std::size_t maxBytes = 1 << 20) {
        try {
            ReadDocument(Write(text), maxBytes);
        } catch (BadInput const& error) {
            return error.what();
        }
        return {};
    }

    std::string m_folder;
};

TEST_F(DocumentInput, KnowsTheLineAndColumnOfEveryMemberAndElement) {
    std::string const path = Write(
        "{\n"
        "  \"presets\": [\n"
        "    {\"key\": \"1\"},\n"
        "    {\"key\": \"9\", \"value\": {\"actions\": [{\"metadata\": {\"accountID\": \"x\"}}]}}\n"
        "  ]\n"
        "}\n");
    Document const document = ReadDocument(path, 1 << 20);
    EXPECT_EQ(document.Where("presets"), path + ":2:3");
    EXPECT_EQ(document.Where("presets[1]"), path + ":4:5");
    EXPECT_EQ(document.Where("presets[1].key"), path + ":4:6");
    // Schema names and JSON names alike; a place the document lacks gives its holder's.
    EXPECT_EQ(document.Where("presets[1].value.actions[0].metadata.accountID"), path + ":4:54");
    EXPECT_EQ(document.Where("presets[1].value.actions[0].metadata.account_id"), path + ":4:54");
    EXPECT_EQ(document.Where("presets[1].value.createdOn"), path + ":4:18");
    EXPECT_EQ(document.Where("sources"), path);
}

TEST_F(DocumentInput, TextThatIsNotJsonIsRefusedWithItsLineAndColumn) {
    std::string const problem = Refusal("{\n  \"presets\": [1,\n  ]}");
    EXPECT_NE(problem.find("document.json:3:3: not JSON"), std::string::npos) << problem;
    EXPECT_NE(Refusal("").find("document.json:1:1: not JSON"), std::string::npos);
    EXPECT_NE(Refusal("{} {}").find("document.json:1:4: not JSON"), std::string::npos);
}

TEST_F(DocumentInput, AMemberNamedTwiceInOneObjectIsRefusedWhereItIsSecond) {
    std::string const problem = Refusal("{\"presets\": [{\"key\": \"1\",\n \"key\": \"2\"}]}");
    EXPECT_NE(problem.find("document.json:2:2: the member \"key\" is given twice"),
              std::string::npos)
        << problem;
    // In different objects a name may come again.
    EXPECT_EQ(Refusal("{\"a\": {\"key\": 1}, \"b\": {\"key\": 1}}"), "");
}

TEST_F(DocumentInput, ADocumentLongerThanTheBoundIsRefusedWithoutReadingTheRest) {
    // /dev/zero never ends; its first byte is no JSON.
    try {
        ReadDocument("/dev/zero", 1 << 20);
        FAIL() << "read /dev/zero";
    } catch (BadInput const& error) {
        EXPECT_NE(std::string(error.what()).find("/dev/zero:1:1: not JSON: a NUL byte"),
                  std::string::npos)
            << error.what();
    }
    // White space is JSON until it ends: the bound ends it.
    std::string const problem = Refusal(std::string(10000, ' ') + "{}", 4096);
    EXPECT_NE(problem.find("longer than 4096 bytes"), std::string::npos) << problem;
    EXPECT_EQ(Refusal(std::string(4094, ' ') + "{}", 4096), "");
}

TEST_F(DocumentInput, AFileThatCannotBeReadIsNamed) {
    try {
        ReadDocument(m_folder, 1 << 20);
        FAIL() << "read a folder";
    } catch (BadInput const& error) {
        EXPECT_NE(std::string(error.what()).find(m_folder + ": cannot read"), std::string::npos)
            << error.what();
    }
}

TEST(ParserProblems, NameThePlaceProtobufsParserGives) {
    EXPECT_EQ(PlaceInParserProblem("(presets[0].value) colour: Cannot find field."),
              "presets[0].value.colour");
    EXPECT_EQ(PlaceInParserProblem("(field[1].number): invalid value \"x\" for type TYPE_INT32"),
              "field[1].number");
    EXPECT_EQ(PlaceInParserProblem("isAssociated: Cannot find field."), "isAssociated");
    EXPECT_EQ(PlaceInParserProblem("() isAssociated: Cannot find field."), "isAssociated");
    EXPECT_EQ(PlaceInParserProblem("Unexpected end of string."), "");
}

}  // namespace
}  // namespace Vellmark::Ctl
