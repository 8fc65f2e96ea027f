// Status records, the exception tree and the JSON error report.

#include "libcommon/core/status.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

TEST(Status, CleanStatusIsOkInEveryModeAndRendersNothing) {
    Status s;
    EXPECT_TRUE(s.isOk());
    EXPECT_TRUE(s.isOk(false));
    EXPECT_TRUE(s.isOk(true));
    EXPECT_EQ(ERR_NONE, s.getErrorCode());
    EXPECT_EQ("", s.toJson());
}

TEST(Status, IsOkWithInfoAcceptsOnlyTheCleanCode) {
    Status s;
    s.setInfo("progress %d", 5);
    EXPECT_FALSE(s.isOk());
    EXPECT_TRUE(s.isOk(true));
    EXPECT_FALSE(s.isOk(false));
    EXPECT_EQ("", s.toJson()) << "an informational status carries no error code";
    EXPECT_EQ(16u, s.getSeverity());

    s.setWarning(ERR_FILE_IO, "disk");
    EXPECT_FALSE(s.isOk(true));
    s.setFields(SeverityWarning, ERR_NONE, "harmless");
    EXPECT_TRUE(s.isOk(true));
}

TEST(Status, JsonRenderingHasTheFixedMemberOrder) {
    Status s(ERR_ACCESS_REFUSED, "x");
    EXPECT_EQ("{\"Code\":131121,\"Time\":0,\"Format\":\"x\",\"Severity\":4,\"AltOrg\":\"Velmora\"}",
              s.toJson());

    s.setServiceName("Memory");
    s.setError(ERR_FILE_IO, std::string());
    EXPECT_EQ("{\"Code\":131093,\"Time\":0,\"Service\":\"Memory\",\"Severity\":4,\"AltOrg\":\"Velmora\"}",
              s.toJson())
        << "an empty message is left out, the service stays across setters";

    s.setError(ERR_HEX_FORMAT, std::string("quote \" and\nnewline"));
    EXPECT_NE(std::string::npos, s.toJson().find("\"Format\":\"quote \\\" and\\nnewline\""));
}

TEST(Status, SettersOverwriteComponentButKeepChildAndService) {
    Status s(SeverityError, "flash", ERR_GENERAL, "old");
    boost::shared_ptr<IStatus> child(new Status(ERR_FILE_IO, "inner"));
    s.setChild(child);
    s.setServiceName("svc");
    EXPECT_EQ("flash", s.getComponent());

    s.setError(ERR_NOT_FOUND, "missing %s", "reg");
    EXPECT_EQ("", s.getComponent());
    EXPECT_EQ("missing reg", s.getMessage());
    EXPECT_EQ(child, s.getChild());

    s.reset();
    EXPECT_TRUE(s.isOk());
    EXPECT_EQ("", s.getMessage());
    EXPECT_EQ(child, s.getChild());
    EXPECT_EQ("svc", s.getServiceName());
}

TEST(Status, FormattedTextsAreCutAt1023Characters) {
    std::string longText(2000, 'a');
    Status s(ERR_GENERAL, "%s", longText.c_str());
    EXPECT_EQ(std::string(1023, 'a'), s.getMessage());

    s.setError(ERR_GENERAL, longText);
    EXPECT_EQ(1023u, s.getMessage().size()) << "the string form is cut alike";

    s.setError(ERR_GENERAL, std::string("100%s"));
    EXPECT_EQ("100%s", s.getMessage()) << "the string form is never read as a format";

    s.setFields(SeverityError, "c", ERR_GENERAL, longText);
    EXPECT_EQ(2000u, s.getMessage().size()) << "the plain message setter has no limit";

    Status fromError(GenericError(longText), "core");
    EXPECT_EQ(1023u, fromError.getMessage().size());
    EXPECT_EQ(ERR_GENERAL, fromError.getErrorCode());
    EXPECT_EQ("core", fromError.getComponent());
}

TEST(Status, CopiesShareTheChild) {
    Status a(ERR_GENERAL, "a");
    a.setChild(boost::shared_ptr<IStatus>(new Status()));
    Status b(a);
    EXPECT_EQ(a.getChild(), b.getChild());
    EXPECT_EQ("a", b.getMessage());
}

TEST(Status, MessagesFormattedOnManyThreadsDoNotMix) {
    std::vector<std::thread> threads;
    std::vector<std::string> results(8);
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &results] {
            for (int i = 0; i < 200; ++i) {
                Status s(ERR_GENERAL, "thread %d iteration %d", t, i);
                if (i == 199) results[t] = s.getMessage();
            }
        });
    }
    for (auto& th : threads) th.join();
    for (int t = 0; t < 8; ++t) EXPECT_EQ("thread " + std::to_string(t) + " iteration 199", results[t]);
}

TEST(GenericError, AddPutsContextInFront) {
    GenericError e(std::string("first"));
    e.add("second");
    EXPECT_EQ("second. first", e.getString());
    e.add(std::string("third."));
    EXPECT_EQ("third. second. first", e.getString());
    e.add("n=%d", 4);
    EXPECT_EQ("n=4. third. second. first", e.getString());
    EXPECT_STREQ(e.getString().c_str(), e.what());

    GenericError empty;
    empty.add("only");
    EXPECT_EQ("only", empty.getString());
    EXPECT_EQ(1, empty.getExitCode());
}

TEST(GenericError, StatusIsTheSharedBlankOneEvenAfterCopy) {
    GenericError a(7, "failed %d", 1);
    GenericError b(a);
    EXPECT_TRUE(a.getStatus()->isOk());
    EXPECT_EQ(a.getStatus(), b.getStatus());
    EXPECT_EQ(a.getStatus(), GenericError().getStatus());
    EXPECT_EQ(a, b);
    EXPECT_EQ(7, b.getExitCode());
    EXPECT_NE(a, GenericError(8, "failed 1"));
    b.clear();
    EXPECT_NE(a, b);
}

TEST(GenericError, FixedChildrenCarryTheirTexts) {
    EXPECT_STREQ("The USB device has been disconnected", UsbDisconnectedError().what());
    EXPECT_STREQ("The flash region is locked.", LockedFlashError().what());
    EXPECT_STREQ("", CmsisStopPollingError().what());
    EXPECT_STREQ("cancelled by user", InterruptedException("cancelled by user").what());
    try {
        throw LockedFlashError();
    } catch (const GenericError& e) {
        EXPECT_EQ(1, e.getExitCode());
    }
}

TEST(ResponseError, ReadsIdAndCodeFromThePacket) {
    Packet two{0x12, 0x34};
    ResponseError e(two, "bad %s", "answer");
    EXPECT_EQ(0x12, e.getResponseId());
    try {
        e.getResponseCode();
        FAIL() << "a two-byte packet has no code";
    } catch (const GenericError& g) {
        EXPECT_EQ("Could not get response code. Response packet is too small.", g.getString());
    }
    try {
        ResponseError().getResponseId();
        FAIL();
    } catch (const GenericError& g) {
        EXPECT_EQ("Could not get response ID. Response packet is empty.", g.getString());
    }
    Packet three{1, 2, 3};
    EXPECT_EQ(3, ResponseError(three).getResponseCode());
    EXPECT_EQ(ResponseError(three, std::string("m")), ResponseError(three, std::string("m")));
    EXPECT_NE(ResponseError(three, std::string("m")), ResponseError(two, std::string("m")));
}

TEST(CoreException, WhatComesFromTheStatus) {
    EXPECT_STREQ("nullstatus", CoreException(boost::shared_ptr<IStatus>()).what());
    try {
        CoreException::createAndThrow("core", ERR_DEVICE_INFO, "space %s missing", "data");
        FAIL();
    } catch (const CoreException& e) {
        EXPECT_STREQ("space data missing", e.what());
        EXPECT_EQ(ERR_DEVICE_INFO, e.getStatus()->getErrorCode());
        EXPECT_EQ(4u, e.getStatus()->getSeverity());
        EXPECT_EQ("core", e.getStatus()->getComponent());
    }
    try {
        CoreException::createAndThrow("c", ERR_GENERAL, std::string("50%d"));
    } catch (const CoreException& e) {
        EXPECT_STREQ("50%d", e.what());
    }
}

TEST(ErrorDescr, RendersOnlyWhatIsSet) {
    ErrorDescr e(3, "svc", "Unknown command");
    EXPECT_EQ("{\"Code\":3,\"Service\":\"svc\",\"Format\":\"Unknown command\"}", std::string(e.what()));

    e.params.push_back(json_spirit::Value(5));
    e.params.push_back(json_spirit::Value("p"));
    e.severity = 4;
    e.altCode = 9;
    e.altOrg = "Org";
    e.time = 12;
    EXPECT_EQ("{\"Code\":3,\"Time\":12,\"Service\":\"svc\",\"Format\":\"Unknown command\","
              "\"Params\":[5,\"p\"],\"Severity\":4,\"AltCode\":9,\"AltOrg\":\"Org\"}",
              e.toJson());
    EXPECT_EQ(e.toJson(), std::string(e.what()));

    EXPECT_STREQ("", ErrorDescr(0, "svc", "text").what());
}
