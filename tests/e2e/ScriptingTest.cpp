// vellmarkctl in scripts and for a new user: versions, distinct quick errors with their
// own exit codes, the list of message identifiers, bash completion and manual pages.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "VellmarkMessageId.pb.h"
#include "tests/e2e/ProgramsForAnotherUser.h"
#include "tests/e2e/ServiceFixture.h"
#include "tests/support/JsonFields.h"

namespace Vellmark::EndToEnd {
namespace {

std::string ReadText(std::string const& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

class Scripting : public ServiceTest {
protected:
    // Runs `script` in bash with the completion script loaded; its standard output.
    std::string InBashWithCompletion(std::string const& script) {
        // bash runs the program as the completion script does: by the name typed.
        std::string const program = Folder() + "/vellmarkctl";
        std::ofstream(program) << "#!/bin/sh\nexec " << VELLMARKCTL_PATH << " \"$@\"\n";
        EXPECT_EQ(::chmod(program.c_str(), 0755), 0);
        ChildProcess bash(
            "/bin/bash", {"--norc", "--noprofile", "-c",
                          "source " VELLMARK_COMPLETION_PATH " && p=" + program + " && " + script});
        EXPECT_EQ(bash.ExitCode(), 0) << bash.Errors();
        return bash.Output();
    }
};

// Runs vellmarkctl as another user (see ProgramsForAnotherUser.h).
class ScriptingAsAnotherUser : public Scripting {
protected:
    // vellmarkctl as user 65534, in `groups` ({0}: may open the socket files; {}: none).
    std::unique_ptr<ChildProcess> CtlAsNobody(std::vector<unsigned> const& groups,
                                              std::vector<std::string> const& arguments) {
        AnotherUser nobody;
        nobody.groups = groups;
        std::vector<std::string> words{"--runtime-dir", Folder()};
        words.insert(words.end(), arguments.begin(), arguments.end());
        auto ctl = ProgramsForAnotherUser::Get().Start("vellmarkctl", words, nobody);
        EXPECT_TRUE(ctl->Wait(kBound).has_value());
        return ctl;
    }
};

// The words offered after `typed` (the last one being completed).
std::string CompletionOf(std::string const& typed) {
    return "COMP_WORDS=($p " + typed + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " +
           (typed.empty() || typed.back() == ' '
                ? "COMP_WORDS+=(''); COMP_CWORD=$((COMP_CWORD + 1)); "
                : "") +
           "_vellmarkctl && printf '%s\\n' \"${COMPREPLY[@]}\"";
}

TEST_F(Scripting, BothProgramsPrintTheirVersions) {
    for (auto const& [program, name] :
         {std::pair{VELLMARKD_PATH, "vellmarkd"}, std::pair{VELLMARKCTL_PATH, "vellmarkctl"}}) {
        ChildProcess child(program, {"--version"});
        ASSERT_EQ(child.ExitCode(), 0) << child.Errors();
        std::string const text = child.Output();
        EXPECT_EQ(text.rfind(std::string(name) + " " + VELLMARK_VERSION + "\n", 0), 0u) << text;
        EXPECT_NE(text.find("\nschema "), std::string::npos) << text;
        EXPECT_NE(text.find("\nbuild "), std::string::npos) << text;
    }
}

TEST_F(Scripting, NoSocketFileIsToldAtOnce) {
    auto get = Ctl({"--timeout", "0", "get", "sources"});
    EXPECT_EQ(get->ExitCode(), 3);
    EXPECT_NE(get->Errors().find("vellmarkd is not running at " + Folder() + "/Vellmark.sock"),
              std::string::npos)
        << get->Errors();
    // No count and no service: nothing to watch.
    auto subscribe = Ctl({"--timeout", "0", "subscribe", "presets"});
    EXPECT_EQ(subscribe->ExitCode(), 3);
    EXPECT_NE(subscribe->Errors().find("vellmarkd is not running"), std::string::npos)
        << subscribe->Errors();
    auto admin = Ctl({"--timeout", "0", "admin", "acks"});
    EXPECT_EQ(admin->ExitCode(), 3);
    EXPECT_NE(
        admin->Errors().find("vellmarkd is not running at " + Folder() + "/VellmarkAdmin.sock"),
        std::string::npos)
        << admin->Errors();
}

TEST_F(Scripting, ASocketNobodyListensOnIsToldAtOnce) {
    StartService();
    KillService();  // its socket files stay
    auto get = Ctl({"--timeout", "0", "get", "sources"});
    EXPECT_EQ(get->ExitCode(), 3);
    EXPECT_NE(get->Errors().find("nothing listens on it"), std::string::npos) << get->Errors();
}

TEST_F(ScriptingAsAnotherUser, ASocketThisUserMayNotOpenIsToldAtOnce) {
    StartService();
    std::unique_ptr<ChildProcess> get;
    if (::geteuid() != 0) {
        std::string const socket = Folder() + "/Vellmark.sock";
        ASSERT_EQ(::chmod(socket.c_str(), 0), 0);
        get = Ctl({"--timeout", "0", "get", "sources"});
    } else if (ProgramsForAnotherUser::Possible()) {
        ASSERT_EQ(::chmod(Folder().c_str(), 0711), 0);  // others may reach the socket files
        get = CtlAsNobody({}, {"--timeout", "0", "get", "sources"});
    } else {
        GTEST_SKIP() << "cannot run a program as another user here";
    }
    EXPECT_EQ(get->ExitCode(), 4) << get->Errors();
    EXPECT_NE(get->Errors().find("permission denied"), std::string::npos) << get->Errors();
    EXPECT_NE(get->Errors().find(Folder() + "/Vellmark.sock"), std::string::npos) << get->Errors();
    EXPECT_NE(get->Errors().find("uid " + std::to_string(::geteuid() == 0 ? 65534 : ::geteuid())),
              std::string::npos)
        << get->Errors();
}

TEST_F(ScriptingAsAnotherUser, AServerOfAnUntrustedUserIsToldAtOnce) {
    if (!ProgramsForAnotherUser::Possible()) {
        GTEST_SKIP() << "cannot run a program as another user here";
    }
    // A folder root owns and user 65534's group may write to: a server of that user can
    // listen there, yet it is neither root nor the folder's owner.
    ASSERT_EQ(::chown(Folder().c_str(), 0, 65534), 0);
    ASSERT_EQ(::chmod(Folder().c_str(), 0770), 0);
    auto const impostor = ProgramsForAnotherUser::Get().Start(
        "vellmarkd", {"--db", Folder() + "/impostor.db", "--new-store", "--runtime-dir", Folder()});
    ASSERT_TRUE(impostor->WaitForError("vellmarkd: serving", kBound)) << impostor->Errors();

    auto get = Ctl({"--timeout", "0", "get", "sources"});
    EXPECT_EQ(get->ExitCode(), 5) << get->Errors();
    EXPECT_NE(get->Errors().find("runs as uid 65534"), std::string::npos) << get->Errors();
    EXPECT_NE(get->Errors().find("not talking to it"), std::string::npos) << get->Errors();
}

TEST_F(ScriptingAsAnotherUser, ARefusalByTheCredentialCheckIsToldAtOnce) {
    if (!ProgramsForAnotherUser::Possible()) {
        GTEST_SKIP() << "cannot run a program as another user here";
    }
    ASSERT_EQ(::chmod(Folder().c_str(), 0711), 0);
    StartService();
    // --timeout 0: only the refusal can end these.
    for (std::vector<std::string> command :
         {std::vector<std::string>{"get", "persons"}, {"subscribe", "presets"}}) {
        command.insert(command.begin(), {"--timeout", "0"});
        auto refused = CtlAsNobody({0}, command);
        EXPECT_EQ(refused->ExitCode(), 5) << refused->Errors();
        EXPECT_NE(refused->Errors().find(Folder() + "/Vellmark.sock closed the connection at once"),
                  std::string::npos)
            << refused->Errors();
        EXPECT_NE(refused->Errors().find("uid 65534"), std::string::npos) << refused->Errors();
    }
    auto admin = CtlAsNobody({0}, {"--timeout", "0", "admin", "acks"});
    EXPECT_EQ(admin->ExitCode(), 5) << admin->Errors();
    EXPECT_NE(admin->Errors().find("--admin-allow-user"), std::string::npos) << admin->Errors();
}

TEST_F(Scripting, ASilentServiceIsNoAnswerWithinTheTimeout) {
    StartService();
    ASSERT_EQ(
        Ctl({"admin", "fail-next", "VELLMARK_MESSAGE_GET_SOURCES", "--no-answer"})->ExitCode(), 0);
    auto get = Ctl({"--timeout", "1", "get", "sources"});
    EXPECT_EQ(get->ExitCode(), 3);
    EXPECT_NE(get->Errors().find("no answer from the Vellmark service within 1 s"),
              std::string::npos)
        << get->Errors();
    EXPECT_EQ(get->Errors().find("not running"), std::string::npos) << get->Errors();
}

TEST_F(Scripting, IdsListsEveryMessageIdentifierWithItsPayloads) {
    auto ids = Ctl({"ids"});
    ASSERT_EQ(ids->ExitCode(), 0) << ids->Errors();
    TestJson::Fields list;
    ASSERT_TRUE(TestJson::ParseObject(ids->Output(), list)) << ids->Output();
    auto const& rows = list.at("messageIds").list_value().values();
    auto const* descriptor = VellmarkPB::MessageId_descriptor();
    ASSERT_EQ(rows.size(), descriptor->value_count());
    std::map<std::string, TestJson::Fields> byName;
    for (int i = 0; i < rows.size(); ++i) {
        auto const row = TestJson::FieldsOf(rows.Get(i).struct_value());
        EXPECT_EQ(row.at("id").number_value(), descriptor->value(i)->number());
        EXPECT_EQ(row.at("name").string_value(), descriptor->value(i)->name());
        bool const reserved = descriptor->value(i)->name().find("RESERVED") != std::string::npos;
        EXPECT_EQ(row.at("role").string_value() == "reserved", reserved)
            << descriptor->value(i)->name();
        byName[row.at("name").string_value()] = row;
    }
    auto const field = [&](char const* name, char const* key) {
        auto const& row = byName[name];
        auto const found = row.find(key);
        return found == row.end() ? std::string("(none)") : found->second.string_value();
    };
    EXPECT_EQ(field("VELLMARK_MESSAGE_GET_SOURCES", "reply"), "VellmarkPB.sources");
    EXPECT_EQ(field("VELLMARK_MESSAGE_PRESETS_UPDATE", "role"), "update");
    EXPECT_EQ(field("VELLMARK_MESSAGE_GVA_CREATE", "errorIn"), "VELLMARK_MESSAGE_GVA_CREATE_ERROR");
    EXPECT_EQ(field("VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT", "reply"),
              "VellmarkPB.VellmarkAcctOpEnvelope");
    EXPECT_EQ(field("VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT", "errorIn"), "reply");
    EXPECT_EQ(field("VELLMARK_MESSAGE_CLOUDSYNC_RECEIVED", "role"), "one-way");
    EXPECT_FALSE(byName["VELLMARK_MESSAGE_GET_PRESETS"].at("hasErrorReply").bool_value());
}

TEST_F(Scripting, BashCompletesCommandsResourcesOptionsAndIdentifiers) {
    if (!kChildLauncher.empty()) GTEST_SKIP() << "bash cannot start this build's programs";
    EXPECT_EQ(InBashWithCompletion("complete -p vellmarkctl"),
              "complete -F _vellmarkctl vellmarkctl\n");
    std::string const commands = InBashWithCompletion(CompletionOf(""));
    for (auto const& command : {"get\n", "subscribe\n", "admin\n", "ids\n", "--timeout\n"}) {
        EXPECT_NE(commands.find(command), std::string::npos) << commands;
    }
    EXPECT_EQ(InBashWithCompletion(CompletionOf("ad")), "admin\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("admin fa")), "fail-next\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("get pe")), "persons\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("subscribe as")), "association\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("get --show")), "--show-secrets\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("--runtime-dir /tmp get --pre")), "--pretty\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("admin fail-next VELLMARK_MESSAGE_GVA_CREATE")),
              "VELLMARK_MESSAGE_GVA_CREATE\nVELLMARK_MESSAGE_GVA_CREATE_ERROR\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("admin delay 5 --id VELLMARK_MESSAGE_GET_GR")),
              "VELLMARK_MESSAGE_GET_GROUPS\n");
}

TEST_F(Scripting, ManualPagesHoldTheOptions) {
    std::string const folder = VELLMARK_MAN_DIR;
    if (folder.empty()) GTEST_SKIP() << "this build makes no manual pages";
    std::string const ctl = ReadText(folder + "/vellmarkctl.1");
    std::string const service = ReadText(folder + "/vellmarkd.8");
    EXPECT_NE(ctl.find(".TH VELLMARKCTL \"1\""), std::string::npos) << ctl.substr(0, 300);
    EXPECT_NE(service.find(".TH VELLMARKD \"8\""), std::string::npos) << service.substr(0, 300);
    for (auto const* page : {&ctl, &service}) {
        for (auto const& section : {".SH NAME", ".SH SYNOPSIS", ".SH DESCRIPTION"}) {
            EXPECT_NE(page->find(section), std::string::npos) << section;
        }
        EXPECT_NE(page->find("\\-\\-version"), std::string::npos);
    }
    for (auto const& option : {"\\-\\-timeout", "\\-\\-runtime\\-dir", "\\-\\-pretty"}) {
        EXPECT_NE(ctl.find(option), std::string::npos) << option;
    }
    EXPECT_NE(ctl.find("Exit codes"), std::string::npos);
    for (auto const& option : {"\\-\\-db", "\\-\\-allow\\-user", "\\-\\-admin\\-allow\\-user"}) {
        EXPECT_NE(service.find(option), std::string::npos) << option;
    }
}

}  // namespace
}  // namespace Vellmark::EndToEnd
