// vellmarkctl in scripts and for a new user: versions, distinct quick errors with their
// own exit codes, the list of message identifiers, bash completion and manual pages.
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "VellmarkMessageId.pb.h"
#include "tests/e2e/ProgramsForAnotherUser.h"
#include "tests/e2e/ServiceFixture.h"
#include "tests/support/JsonFields.h"

namespace Vellmark::EndToEnd {
namespace {

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
    // Payload types as frames (and monitor) name them.
    EXPECT_EQ(field("VELLMARK_MESSAGE_GET_SOURCES", "reply"), "sources");
    EXPECT_EQ(field("VELLMARK_MESSAGE_PRESETS_UPDATE", "role"), "update");
    EXPECT_EQ(field("VELLMARK_MESSAGE_GVA_CREATE", "errorIn"), "VELLMARK_MESSAGE_GVA_CREATE_ERROR");
    EXPECT_EQ(field("VELLMARK_MESSAGE_CREATE_SERVICE_ACCOUNT", "reply"), "VellmarkAcctOpEnvelope");
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

TEST_F(Scripting, BashCompletesFileAndFolderNamesWhereAnArgumentIsAPath) {
    if (!kChildLauncher.empty()) GTEST_SKIP() << "bash cannot start this build's programs";
    WriteFile("presets.json", "{}");
    WriteFile("prelude.txt", "");
    std::filesystem::create_directory(Folder() + "/premises");
    std::string const at = Folder() + "/pre";
    std::string const files =
        Folder() + "/prelude.txt\n" + Folder() + "/premises\n" + Folder() + "/presets.json\n";
    auto const sorted = [this](std::string const& typed) {
        return InBashWithCompletion(CompletionOf(typed) + " | LC_ALL=C sort");
    };
    EXPECT_EQ(sorted("store-presets " + at), files);
    EXPECT_EQ(sorted("account create " + at), files);
    EXPECT_EQ(sorted("admin put sources " + at), files);
    EXPECT_EQ(sorted("admin seed " + at), files);
    EXPECT_EQ(sorted("call VELLMARK_MESSAGE_STORE_PRESETS " + at), files);
    EXPECT_EQ(sorted("monitor --pcap " + at), files);
    EXPECT_EQ(sorted("--runtime-dir " + at), Folder() + "/premises\n");
    // Where no path goes, none is offered.
    EXPECT_EQ(InBashWithCompletion(CompletionOf("get " + at)), "\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("call VELLMARK_MESSAGE_GET_PERS")),
              "VELLMARK_MESSAGE_GET_PERSONS\n");
    EXPECT_EQ(InBashWithCompletion(CompletionOf("describe serviceAcc")), "serviceAccounts\n");
}

TEST_F(Scripting, ManualPagesHaveEverySectionAndCommandAndNothingOfTheBuild) {
    std::string const folder = VELLMARK_MAN_DIR;
    if (folder.empty()) GTEST_SKIP() << "this build makes no manual pages";
    if (::access("/usr/bin/man", X_OK) != 0) GTEST_SKIP() << "man is not installed";
    // As a reader sees them: rendered by man, without hyphenation or justification.
    auto const rendered = [](std::string const& page) {
        ChildLaunch launch;
        launch.hostProgram = true;
        launch.environment = {"MANWIDTH=200", "LC_ALL=C"};
        ChildProcess man("/usr/bin/man", {"-l", "-P", "cat", page}, launch);
        EXPECT_EQ(man.ExitCode(), 0) << man.Errors();
        // Without bold and underline (backspace pairs), and with the blanks that justify a
        // line taken as one.
        std::string text;
        for (char c : man.Output()) {
            if (c == '\b' && !text.empty()) {
                text.pop_back();
            } else if (c != ' ' || text.empty() || text.back() != ' ') {
                text += c;
            }
        }
        return text;
    };
    std::string const ctl = rendered(folder + "/vellmarkctl.1");
    std::string const service = rendered(folder + "/vellmarkd.8");
    for (auto const* page : {&ctl, &service}) {
        for (auto const& section : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS",
                                    "ENVIRONMENT", "FILES", "EXAMPLES", "SEE ALSO"}) {
            EXPECT_NE(page->find("\n" + std::string(section) + "\n"), std::string::npos)
                << section << " in\n"
                << *page;
        }
        // Nothing of the machine that built it: no folder of the build or the sources, no
        // home folder, no build identifier.
        for (std::string const& path :
             {std::string(VELLMARK_SOURCE_DIR), std::string(folder), std::string(VELLMARKCTL_PATH),
              std::string("/root"), std::string("/home/")}) {
            EXPECT_EQ(page->find(path), std::string::npos) << path << " in\n" << *page;
        }
        // Only --version tells the schema's digest and the build.
        EXPECT_EQ(page->find("digest of the installed"), std::string::npos) << *page;
        EXPECT_NE(page->find(VELLMARK_VERSION), std::string::npos);
    }
    // Every command of vellmarkctl, with its options.
    for (auto const& command : {"get",
                                "subscribe",
                                "store-presets",
                                "account",
                                "create",
                                "update",
                                "delete",
                                "gva",
                                "update-device-id",
                                "admin",
                                "put",
                                "clients",
                                "acks",
                                "drop-connections",
                                "export",
                                "fail-next",
                                "delay",
                                "seed",
                                "push",
                                "monitor",
                                "ids",
                                "describe",
                                "call"}) {
        EXPECT_NE(ctl.find(command), std::string::npos) << command;
    }
    for (auto const& option : {"--timeout", "--runtime-dir", "--pretty", "--wait", "--show-secrets",
                               "--template", "--pcap", "--connection", "--count"}) {
        EXPECT_NE(ctl.find(option), std::string::npos) << option;
    }
    EXPECT_NE(ctl.find("TARV_RUNTIME_DIR"), std::string::npos);
    EXPECT_NE(ctl.find("vellmarkd(8)"), std::string::npos);
    EXPECT_NE(ctl.find("not running"), std::string::npos);  // in EXIT STATUS
    for (auto const& option : {"--db", "--allow-user", "--admin-allow-user"}) {
        EXPECT_NE(service.find(option), std::string::npos) << option;
    }
    EXPECT_NE(service.find("~/.local/share/vellmarkd/vellmark.db"), std::string::npos);
    EXPECT_NE(service.find("systemd-socket-activate --fdname=Vellmark:VellmarkAdmin"),
              std::string::npos);
    EXPECT_NE(service.find("vellmarkctl(1)"), std::string::npos);
}

}  // namespace
}  // namespace Vellmark::EndToEnd
