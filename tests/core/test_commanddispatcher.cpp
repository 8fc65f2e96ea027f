// Command table and the turning of every failure into a JSON report.

#include "libcommon/core/commanddispatcher.h"
#include "libcommon/core/status.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {
using Args = std::vector<std::string>;

CommandDispatcher makeDispatcher() {
    CommandDispatcher d("Flash");
    d.addCommand("echo", [](const Args& a, Args& r) { r.insert(r.end(), a.begin(), a.end()); });
    d.addCommand("std", [](const Args&, Args& r) {
        r.push_back("one");
        r.push_back("two");
        throw std::runtime_error("boom");
    });
    d.addCommand("int", [](const Args&, Args&) { throw 42; });
    d.addCommand("generic", [](const Args&, Args&) { throw GenericError(9, "generic %s", "failure"); });
    d.addCommand("core", [](const Args&, Args&) {
        boost::shared_ptr<Status> s(new Status(SeverityWarning, ERR_FILE_IO, "io"));
        s->setServiceName("Files");
        throw CoreException(s);
    });
    d.addCommand("clean", [](const Args&, Args&) {
        throw CoreException(boost::shared_ptr<IStatus>(new Status()));
    });
    d.addCommand("descr", [](const Args&, Args&) { throw ErrorDescr(77, "Other", "own"); });
    return d;
}
}  // namespace

TEST(CommandDispatcher, UnknownCommand) {
    CommandDispatcher d = makeDispatcher();
    Args results{"kept"};
    d.dispatch("nothing", {}, results, true);
    ASSERT_EQ(2u, results.size());
    EXPECT_EQ("{\"Code\":3,\"Service\":\"Flash\",\"Format\":\"Unknown command\"}", results[1]);

    Args untouched;
    EXPECT_THROW(d.dispatch("nothing", {}, untouched, false), ErrorDescr);
    EXPECT_TRUE(untouched.empty());
    EXPECT_THROW(d.dispatch("ECHO", {}, untouched, false), ErrorDescr) << "names are case sensitive";
}

TEST(CommandDispatcher, EachKindOfFailureBecomesOneReport) {
    CommandDispatcher d = makeDispatcher();
    struct Case {
        const char* command;
        std::string report;
    } cases[] = {
        {"int", "{\"Code\":1,\"Service\":\"Flash\",\"Format\":\"The Service threw an unknown exception\"}"},
        {"generic", "{\"Code\":3,\"Service\":\"Flash\",\"Format\":\"generic failure\"}"},
        {"core", "{\"Code\":131093,\"Time\":0,\"Service\":\"Files\",\"Format\":\"io\",\"Severity\":2,\"AltOrg\":\"Velmora\"}"},
        {"clean", ""},
        {"descr", "{\"Code\":77,\"Service\":\"Other\",\"Format\":\"own\"}"},
    };
    for (const Case& c : cases) {
        Args results;
        d.dispatch(c.command, {}, results, true);
        ASSERT_EQ(1u, results.size()) << c.command;
        EXPECT_EQ(c.report, results[0]) << c.command;
    }
}

TEST(CommandDispatcher, ReportFollowsWhatTheHandlerAppended) {
    CommandDispatcher d = makeDispatcher();
    Args results;
    d.dispatch("std", {}, results, true);
    ASSERT_EQ(3u, results.size());
    EXPECT_EQ("two", results[1]);
    EXPECT_EQ("{\"Code\":1,\"Service\":\"Flash\",\"Format\":\"boom\"}", results[2]);

    Args passed;
    EXPECT_THROW(d.dispatch("generic", {}, passed, false), GenericError);
}

TEST(CommandDispatcher, ReplacingAndCopying) {
    CommandDispatcher d = makeDispatcher();
    d.addCommand("echo", [](const Args&, Args& r) { r.push_back("replaced"); });
    CommandDispatcher copy(d);
    copy.addCommand("only-in-copy", [](const Args&, Args& r) { r.push_back("copy"); });

    Args results;
    d.dispatch("echo", {"a"}, results, false);
    EXPECT_EQ(Args{"replaced"}, results);
    results.clear();
    d.dispatch("only-in-copy", {}, results, true);
    EXPECT_NE(std::string::npos, results[0].find("Unknown command"));
    results.clear();
    copy.dispatch("only-in-copy", {}, results, false);
    EXPECT_EQ(Args{"copy"}, results);
}
