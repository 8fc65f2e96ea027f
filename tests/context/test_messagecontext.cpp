// Message channels: identity and property list, delivery to every handler
// whatever the settings, and which changes are announced.

#include "libcommon/context/messagecontext.h"
#include "libcommon/core/status.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace js = json_spirit;

namespace {

boost::shared_ptr<MessageContext> makeChannel(
    const std::string& name,
    boost::shared_ptr<IMessageContext> parent = boost::shared_ptr<IMessageContext>()) {
    return boost::make_shared<MessageContext>(parent, name);
}

int idNumber(const std::string& id) {
    EXPECT_EQ(0u, id.rfind("Msg_", 0)) << id;
    return std::stoi(id.substr(4));
}

struct ChangeCounter {
    explicit ChangeCounter(const IContextBase& context)
        : connection(context.addContextChangedHandler(
              [this](boost::shared_ptr<IContextBase> who) { seen.push_back(who); })) {}
    std::vector<boost::shared_ptr<IContextBase>> seen;
    boost::signals2::scoped_connection connection;
};

}  // namespace

TEST(MessageContext, ReportsIdentityAndSettingsInOrder) {
    auto root = makeChannel("build");
    auto child = makeChannel("build.flash", root);
    // Ids number upwards, one counter for all channels.
    EXPECT_EQ(idNumber(root->getId()) + 1, idNumber(child->getId()));

    const js::Object expectedRoot{js::Pair("ID", root->getId()), js::Pair("ContextName", "build"),
                                  js::Pair("SeverityThreshold", 2),
                                  js::Pair("ReportingActive", true)};
    EXPECT_EQ(expectedRoot, root->getProperties());
    const js::Object childList = child->getProperties();
    ASSERT_EQ(5u, childList.size());
    EXPECT_EQ(js::Pair("ParentID", root->getId()), childList[1]);
    EXPECT_EQ(js::Pair("ContextName", "build.flash"), childList[2]);
}

TEST(MessageContext, DeliversEveryStatusToEveryHandlerRegardlessOfSettings) {
    auto channel = makeChannel("log");
    channel->sendMessage(Status(SeverityError, ERR_GENERAL, "nobody listens"));

    std::vector<std::string> received;
    auto first = channel->addMessageHandler(
        [&](const IStatus& s) { received.push_back("1:" + s.getMessage()); });
    channel->addMessageHandler(
        [&](const IStatus& s) { received.push_back("2:" + s.getMessage()); });

    channel->setThreshold(SeverityError);
    channel->sendMessage(Status(SeverityInfo, ERR_GENERAL, "below threshold"));
    channel->setActive(false);
    channel->sendMessage(Status(SeverityWarning, ERR_GENERAL, "while inactive"));
    first.disconnect();
    channel->sendMessage(Status(SeverityError, ERR_GENERAL, "after disconnect"));

    const std::vector<std::string> expected{"1:below threshold", "2:below threshold",
                                            "1:while inactive", "2:while inactive",
                                            "2:after disconnect"};
    EXPECT_EQ(expected, received);
}

TEST(MessageContext, SettingsAndTheirAnnouncements) {
    auto channel = makeChannel("log");
    ChangeCounter changes(*channel);

    channel->setThreshold(SeverityInfo);
    EXPECT_EQ(SeverityInfo, channel->getThreshold());
    EXPECT_TRUE(changes.seen.empty());
    channel->setActive(true);  // unchanged value, still announced
    ASSERT_EQ(1u, changes.seen.size());
    EXPECT_EQ(channel, changes.seen[0]);

    js::Object settings{js::Pair("MESSAGE_PROP_SEVERITY_THRESHOLD", 4),
                        js::Pair("Unknown", "ignored"),
                        js::Pair("MESSAGE_PROP_REPORTING_ACTIVE", false)};
    channel->setProperties(settings);
    EXPECT_EQ(SeverityError, channel->getThreshold());
    EXPECT_FALSE(channel->isActive());
    EXPECT_EQ(2u, changes.seen.size());

    // The reported spelling fed back changes nothing, yet is announced.
    js::Object reported = channel->getProperties();
    reported.push_back(js::Pair("SeverityThreshold", 16));
    channel->setProperties(reported);
    EXPECT_EQ(SeverityError, channel->getThreshold());
    EXPECT_EQ(3u, changes.seen.size());

    // A wrong kind stops the walk: earlier keys stay, nothing is announced.
    js::Object bad{js::Pair("MESSAGE_PROP_SEVERITY_THRESHOLD", 16),
                   js::Pair("MESSAGE_PROP_REPORTING_ACTIVE", "yes"),
                   js::Pair("MESSAGE_PROP_SEVERITY_THRESHOLD", 0)};
    EXPECT_THROW(channel->setProperties(bad), std::runtime_error);
    EXPECT_EQ(SeverityInfo, channel->getThreshold());
    EXPECT_FALSE(channel->isActive());
    EXPECT_EQ(3u, changes.seen.size());

    // Any integer is stored and reported back as given, also one that
    // names no severity; the channel only carries the setting.
    for (int threshold : {-1, 0, 3, 32, 1000, INT32_MIN, INT32_MAX}) {
        js::Object odd{js::Pair("MESSAGE_PROP_SEVERITY_THRESHOLD", threshold)};
        channel->setProperties(odd);
        EXPECT_EQ(threshold, static_cast<int>(channel->getThreshold()));
        js::Object properties = channel->getProperties();
        auto reported = std::find_if(properties.begin(), properties.end(), [](const js::Pair& p) {
            return p.name_ == "SeverityThreshold";
        });
        ASSERT_NE(properties.end(), reported);
        EXPECT_EQ(threshold, reported->value_.get_int());
    }
    EXPECT_EQ(10u, changes.seen.size());
}
