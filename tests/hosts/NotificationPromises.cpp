#include "Promise.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Qx::HostTests {

namespace {

/// What listeners received, and what a listener does when it is called.
struct Hearing
{
    std::string name;
    std::vector<std::string>* heard = nullptr;
    std::vector<NotifyMsg> messages;
    std::function<void()> whenCalled;
};

void hear(void* context, const NotifyMsg& message)
{
    auto& hearing = *static_cast<Hearing*>(context);
    hearing.heard->push_back(hearing.name);
    hearing.messages.push_back(message);
    if (hearing.whenCalled) {
        hearing.whenCalled();
    }
}

using Heard = std::vector<std::string>;

void typesHaveOneNumberEach(const Kit& kit)
{
    Services& s = kit.services;
    const NotifyMsgType first = s.lookUpMessageType("hosttests.first");
    const NotifyMsgType second = s.lookUpMessageType("hosttests.second");
    EXPECT_NE(first.id, second.id);
    EXPECT_NE(first.id, s.lutListChanged().id);
    EXPECT_NE(second.id, s.lutListChanged().id);
}

void typesOfANameStay(const Kit& kit)
{
    Services& s = kit.services;
    const NotifyMsgType first = s.lookUpMessageType("hosttests.first");
    s.lookUpMessageType("hosttests.third");
    EXPECT_EQ(s.lookUpMessageType("hosttests.first").id, first.id);
    EXPECT_EQ(s.lutListChanged().id, s.lutListChanged().id);
}

void listenersHearInOrder(const Kit& kit)
{
    Heard heard;
    Hearing a{"a", &heard, {}, {}};
    Hearing b{"b", &heard, {}, {}};
    Hearing c{"c", &heard, {}, {}};
    const auto source = kit.services.makeNotifier();
    for (Hearing* const hearing : {&b, &a, &c}) {
        source->addListener(hear, hearing);
    }
    source->issueNotification({kit.services.lutListChanged(), L"text"});
    EXPECT_EQ(heard, Heard({"b", "a", "c"}));
    ASSERT_EQ(a.messages.size(), 1U);
    EXPECT_EQ(a.messages[0].type.id, kit.services.lutListChanged().id);
    EXPECT_EQ(narrow(a.messages[0].text), "text");
}

void addingAgainHasNoEffect(const Kit& kit)
{
    Heard heard;
    Hearing a{"a", &heard, {}, {}};
    const auto source = kit.services.makeNotifier();
    source->addListener(hear, &a);
    source->addListener(hear, &a);
    source->issueNotification({});
    EXPECT_EQ(heard, Heard({"a"}));
    source->removeListener(hear, &a);
    source->issueNotification({});
    EXPECT_EQ(heard, Heard({"a"})) << "one removal removes it";
}

void nullIsNoListener(const Kit& kit)
{
    const auto source = kit.services.makeNotifier();
    source->addListener(nullptr, nullptr);
    source->issueNotification({}); // would call it
    Heard heard;
    Hearing a{"a", &heard, {}, {}};
    source->addListener(hear, &a);
    source->issueNotification({});
    EXPECT_EQ(heard, Heard({"a"}));
}

void removedListenersHearNothing(const Kit& kit)
{
    Heard heard;
    Hearing a{"a", &heard, {}, {}};
    Hearing b{"b", &heard, {}, {}};
    const auto source = kit.services.makeNotifier();
    source->addListener(hear, &a);
    source->addListener(hear, &b);
    source->removeListener(hear, &a);
    source->issueNotification({});
    EXPECT_EQ(heard, Heard({"b"}));
}

/// What a notification whose listeners change the list leaves behind; lives as long as a lost thread.
struct ChangingListeners
{
    Heard heard;
    Hearing a{"a", &heard, {}, {}};
    Hearing b{"b", &heard, {}, {}};
    std::unique_ptr<NotificationSource> source;
};

void listenersMayChangeTheList(const Kit& kit)
{
    const auto state = std::make_shared<ChangingListeners>();
    state->source = kit.services.makeNotifier();
    state->source->addListener(hear, &state->a);
    state->a.whenCalled = [&s = *state] {
        s.source->removeListener(hear, &s.a);
        s.source->addListener(hear, &s.b);
    };
    ASSERT_TRUE(endsInTime(kit, [state] { state->source->issueNotification({}); }))
        << "a listener that adds and removes listeners waits for ever";
    state->heard.clear();
    state->source->issueNotification({});
    EXPECT_EQ(state->heard, Heard({"b"}));
}

} // namespace

Promises notificationPromises()
{
    return {
        {"Notifications", "TypesHaveOneNumberEach", typesHaveOneNumberEach,
         "platform/Notifications.h: the type that is reserved for changes of the list of LUTs",
         Feature::Notifications},
        {"Notifications",
         "TypesOfANameStay",
         typesOfANameStay,
         "platform/Notifications.h: the same name always has the same type",
         {}},
        {"Notifications", "ListenersHearInOrder", listenersHearInOrder,
         "platform/Notifications.h: listeners are called in the order in which they were added",
         Feature::Notifications},
        {"Notifications", "AddingAgainHasNoEffect", addingAgainHasNoEffect,
         "platform/Notifications.h: adding a listener again has no effect", Feature::Notifications},
        {"Notifications", "NullIsNoListener", nullIsNoListener,
         "platform/Notifications.h: adding a null function has no effect", Feature::Notifications},
        {"Notifications", "RemovedListenersHearNothing", removedListenersHearNothing,
         "platform/Notifications.h: removeListener()", Feature::Notifications},
        {"Notifications", "ListenersMayChangeTheList", listenersMayChangeTheList,
         "platform/Notifications.h: a listener may add and remove listeners", Feature::Notifications},
    };
}

} // namespace Qx::HostTests
