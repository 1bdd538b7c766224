#include "GLO/GLO_Exception.hpp"
#include "THR/THR_Exception.hpp"
#include "THR/THR_LocalPort.hpp"
#include "THR/THR_Object.hpp"
#include "THR/THR_RemoteReference.hpp"
#include "THR/THR_Stack.hpp"
#include "THR/THR_Thread.hpp"
#include "WIN/WIN_Version.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"
#include "tests/support/RaiseSite.hpp"

#include <gmock/gmock.h>

#include <future>
#include <thread>

namespace thr {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

class CallTest : public ::testing::Test {
  protected:
    platform::AsioRunLoops runLoops;
    static inline std::mutex logMutex;
    static inline std::vector<std::string> log;  // logMutex
    const platform::PlatformScope scope{{.runLoops = &runLoops, .log = [](const std::string& line) {
                                             const std::lock_guard lock(logMutex);
                                             log.push_back(line);
                                         }}};

    CallTest() { log.clear(); }
    ~CallTest() override { LocalPort_t::ReleaseLocalPort(); }

    /// Has the thread's own loop run a block.
    static void Post(std::function<void()> block) {
        platform::CFRunLoopGetCurrent()->CFRunLoopPerformBlock(platform::kCFRunLoopDefaultMode, std::move(block));
    }
};

/// What throws an exception of the module with such a message.
auto Raises(const auto& message) {
    return ::testing::Throws<Exception_t>(::testing::Property(&Exception_t::Message, message));
}

template <typename... Values>
Stack_t Stack(const Values&... values) {
    Stack_t stack;
    (stack << ... << values);
    return stack;
}

template <typename T>
T Pop(auto&& stack) {
    T value{};
    stack >> value;
    return value;
}

Stack_t AddressOf(const Object_t& object) {
    Stack_t address;
    object.PushOnStack(address);
    return address;
}

// What the tests call across threads: an object that counts, and remembers the other side.
class Counter_t : public Object_t {
  public:
    Counter_t() { AddReference(glo::AutoPtr<LocalReference_t>(new LocalReference_t(*this))); }

    int mCount = 0;
    mutable int mCanceled = 0;
    glo::AutoPtr<RemoteReference_t> mPeer;

    static Counter_t& From(Object_t& object) { return static_cast<Counter_t&>(object); }

    static void Add(Object_t& object, Stack_t& arguments, Stack_t& result) {
        result << (From(object).mCount += Pop<int>(arguments));
    }
    static void Finish(Object_t& object, Stack_t&, Stack_t&) {
        LocalPort_t::GetLocalPort().RemoveReference(object.Id());
    }

    /// Calls the peer back and adds twice what it answers: a call within a call.
    static void AddThroughPeer(Object_t& object, Stack_t& arguments, Stack_t& result) {
        result << (From(object).mCount += 2 * Pop<int>(From(object).mPeer->CallSync(Add, std::move(arguments))));
    }

  protected:
    void Canceled() const override { ++mCanceled; }
};

/// A thread that serves a Counter_t, whose peer is the other one, until it is told to finish. Nobody releases its port:
/// the end of the thread does.
class Server {
  public:
    explicit Server(Counter_t& peer)
        : mThread([this, address = AddressOf(peer)]() mutable {
              Counter_t counter;
              counter.mPeer.reset(new RemoteReference_t(address));
              mAddress.set_value(AddressOf(counter));
              counter.RunLoop();
          }) {
        Stack_t address = mAddress.get_future().get();
        reference.reset(new RemoteReference_t(address));
    }
    ~Server() {
        if (reference) reference->CallAsync(Counter_t::Finish, {});
    }

    int Call(Method_t method, int number) { return Pop<int>(reference->CallSync(method, Stack(number))); }

    glo::AutoPtr<RemoteReference_t> reference;

  private:
    std::promise<Stack_t> mAddress;
    std::jthread mThread;  // last: it uses the others
};

TEST(Stack, ValuesComeBackLastInFirstOutAndTextByPointerAsText) {
    const ObjectId_t id = ObjectId_t::Next();
    EXPECT_NE(id, ObjectId_t::Next());
    const std::string narrow("narrow\0x", 8);
    const char* const narrowText = "narrow";
    const wchar_t* const wideText = L"wide \x1F600";
    Stack_t stack =
        Stack(narrow, narrowText, std::wstring(), wideText, id, win::Version_t(1, 2, 3, 4), -5, geo::Position_t(1, 2));
    EXPECT_EQ(Pop<geo::Position_t>(stack), geo::Position_t(1, 2));
    EXPECT_EQ(Pop<int>(stack), -5);
    EXPECT_EQ(Pop<win::Version_t>(stack), win::Version_t(1, 2, 3, 4));
    EXPECT_EQ(Pop<ObjectId_t>(stack), id);
    EXPECT_EQ(Pop<std::wstring>(stack), wideText);
    EXPECT_EQ(Pop<std::wstring>(stack), L"");
    EXPECT_EQ(Pop<std::string>(stack), narrowText);
    EXPECT_EQ(Pop<std::string>(stack), narrow);
    EXPECT_TRUE(stack.IsEmpty());
    static_assert(!StackScalar<const char*> && !StackScalar<wchar_t*>);
}

TEST(Stack, PoppingMoreThanIsThereThrowsWithADumpAndTakesNothing) {
    Stack_t stack({0x41, 0x42, 0x00});
    int value = 0;
    const auto pop = [&] { stack.Pop(&value, sizeof value, "some/File", 123); };
    EXPECT_EQ(support::raisedAt<BadStackException_t>(pop), "some/File 123");
    EXPECT_THAT(pop, Raises(StartsWith(L"Requested Data Size: 4\nStack Size: 3\nStack Contents:\n0000: 41 42 00")));
    EXPECT_EQ(stack.Bytes().size(), 3u);
    for (const std::uint64_t lie : {std::uint64_t{4}, std::uint64_t{1} << 62, ~std::uint64_t{0}}) {
        Stack_t narrow = Stack('a', 'b', 'c', lie), wide = Stack('a', lie);
        std::string text;
        std::wstring wideText;
        EXPECT_THROW(narrow >> text, BadStackException_t) << lie;
        EXPECT_THROW(wide >> wideText, BadStackException_t) << lie;
    }
}

TEST_F(CallTest, APortRefusesWhatIsNoCallAndLogsWhatItCantDeliver) {
    Stack_t stack = Stack(1);
    EXPECT_THAT([&] { LocalPort_t::GetLocalPort().ProcessMessage(stack, 150, L""); }, Raises(L"")) << "by its id";
    MessagePort_t deaf(nullptr);
    EXPECT_EQ(deaf.Name().find(L"TEAMID0000.Trovik."), 0u);
    MessagePort_t(deaf.Name()).SendStack(gcAsyncCall, stack, L"");
    auto* const object = new Counter_t;
    Stack_t address = AddressOf(*object);
    RemoteReference_t reference(address);
    reference.CallAsync([](Object_t& called, Stack_t&, Stack_t&) { delete &called; }, {});  // a call may do that
    reference.CallAsync(Counter_t::Add, Stack(1));  // nobody has the id any more
    ProcessMessageWithNoWait();
    EXPECT_THAT(log, ElementsAre(StartsWith("Error: No message handler at libs/THR/mac/THR_MessagePort, "),
                                 StartsWith("Exception thrown at libs/THR/THR_LocalPort, ")));

    Stack_t empty;
    EXPECT_THROW(deaf.SendStack(gcAsyncCall, empty, L"name"), Exception_t);
    EXPECT_THAT([&] { MessagePort_t(L"nobody").SendStack(gcAsyncCall, stack, L""); },
                Raises(L"CFMessagePortSendRequest ReturnCode = -3"));
}

TEST_F(CallTest, CallsRunInOrderOnTheObjectsThreadAndAnswerOrRaiseWhatTheyThrow) {
    Counter_t mine;
    Server server(mine);
    for (int i = 1; i <= 20; ++i) server.reference->CallAsync(Counter_t::Add, Stack(i));
    EXPECT_EQ(server.Call(Counter_t::Add, 1000), 1210);
    // The server calls this thread back while this thread waits for the server.
    EXPECT_EQ(server.Call(Counter_t::AddThroughPeer, 5), 1220);
    EXPECT_EQ(mine.mCount, 5);

    static const Method_t raise = [](auto&, auto&, auto&) { throw glo::Exception_t("some/File", 77, L"why", "sub"); };
    const auto call = [&] { server.reference->CallSync(raise, {}); };
    EXPECT_EQ(support::raisedAt<Exception_t>(call), "some/File 77");
    EXPECT_THAT(call, Raises(L"why"));
    EXPECT_THROW(server.reference->CallSync([](auto&, auto&, auto&) { throw 1; }, {}), Exception_t);
    EXPECT_THROW(server.reference->CallSync(Counter_t::Add, {}), Exception_t) << "an argument is missing";
    EXPECT_EQ(server.Call(Counter_t::Add, 3), 1223) << "the thread still serves";
}

TEST_F(CallTest, TheEndOfTheCalledThreadEndsAWaitingCall) {
    Counter_t mine;
    Server server(mine);
    std::promise<void> mayEnd;
    server.reference->CallAsync([](auto&, auto& held, auto&) { Pop<std::promise<void>*>(held)->get_future().wait(); },
                                Stack(&mayEnd));
    server.reference->CallAsync(Counter_t::Finish, {});
    // Served once the call waits for its answer; the thread then ends with the call still in its queue.
    Post([&] { mayEnd.set_value(); });
    EXPECT_THAT([&] { server.reference->CallSync(Counter_t::Add, Stack(1)); }, Raises(L"The called thread has ended."));
    server.reference.reset();
}

TEST_F(CallTest, TwoThreadsWithFullQueuesThatCallEachOtherGetOn) {
    constexpr int cCalls = 3 * 5 + 2;  // more than the queues of both sides take
    Counter_t mine;
    Server server(mine);
    static const Method_t callBackOften = [](Object_t& object, Stack_t&, Stack_t&) {
        for (int i = 0; i < cCalls; ++i) Counter_t::From(object).mPeer->CallAsync(Counter_t::Add, Stack(1));
    };
    server.reference->CallAsync(callBackOften, {});
    for (int i = 0; i < cCalls; ++i) server.reference->CallAsync(Counter_t::Add, Stack(1));
    while (mine.mCount < cCalls) ProcessMessageWithInfiniteWait();
    EXPECT_EQ(server.Call(Counter_t::Add, 0), cCalls);
}

TEST_F(CallTest, ABoundFunctorSeesTheCancelOfAnotherThread) {
    Counter_t mine;
    mine.ResetCancel();
    const CancelRequestedFunctor_t& canceled = mine.CancelFunctor();
    EXPECT_FALSE(canceled());
    Stack_t address = AddressOf(mine);
    static const Method_t cancel = [](Object_t& object, Stack_t&, Stack_t&) { object.RequestCancel(); };
    std::thread other([&] { RemoteReference_t(address).CallAsync(cancel, {}); });
    while (!canceled()) std::this_thread::yield();  // a long operation that asks between its steps
    other.join();
    EXPECT_EQ(mine.mCanceled, 1);
    EXPECT_FALSE(mine.CancelRequested()) << "the object itself forgets";
    mine.ResetCancel();
    EXPECT_FALSE(canceled());

    LocalPort_t::GetLocalPort().RemoveReference(mine.Id());
    EXPECT_TRUE(canceled()) << "nothing retains the object";
    EXPECT_THROW(mine.Release(), Exception_t);
}

TEST_F(CallTest, MessagesThatKeepComingEndNeitherServingWithoutWaitNorATestForCancellation) {
    Counter_t mine;
    Stack_t address = AddressOf(mine);
    mine.mPeer.reset(new RemoteReference_t(address));
    static const Method_t callAgain = [](Object_t& object, Stack_t&, Stack_t&) {
        if (++Counter_t::From(object).mCount < 1000) Counter_t::From(object).mPeer->CallAsync(callAgain, {});
    };
    mine.mPeer->CallAsync(callAgain, {});
    ProcessMessageWithNoWait();
    EXPECT_EQ(mine.mCount, 1);
    EXPECT_FALSE(mine.CancelRequested());
    EXPECT_EQ(mine.mCount, 2);
}

TEST_F(CallTest, TheRunLoopEndsByAbortAndByTheLastReleaseAndByNothingElse) {
    Counter_t mine;
    int served = 0;
    Post([&] { ++served, throw 1; });
    Post([&] { ++served, throw Exception_t("x", 1, L""); });
    Post([&] { ++served, throw AbortThread_t("x", 1); });
    Post([&] { ++served, LocalPort_t::GetLocalPort().RemoveReference(mine.Id()); });
    Post([&] { ++served; });
    mine.RunLoop();
    EXPECT_EQ(served, 3);
    mine.RunLoop();
    EXPECT_EQ(served, 4);
    ProcessMessageWithNoWait();
    EXPECT_EQ(served, 5) << "what is left would else be served in the next case, with what has gone by then";
}

TEST_F(CallTest, ProcessMessageUntilServesUntilTheMomentAndNotInThePast) {
    bool isServed = false;
    Post([&] { isServed = true; });
    ProcessMessageUntil(platform::CFAbsoluteTimeGetCurrent() - 1);
    EXPECT_FALSE(isServed);
    const double until = platform::CFAbsoluteTimeGetCurrent() + 0.002;
    ProcessMessageUntil(until);
    EXPECT_TRUE(isServed);
    EXPECT_GE(platform::CFAbsoluteTimeGetCurrent(), until);
}

/// Tells its name when a thread has ended but for this.
struct AtThreadEnd {
    std::wstring name;
    std::promise<std::wstring>& told;
    ~AtThreadEnd() { told.set_value(name); }
};

TEST_F(CallTest, WhatAThreadsEntryThrowsIsLoggedAndItsPortReleased) {
    std::promise<std::wstring> name;
    Stack_t arguments = Stack(&name);
    StartThread(
        [](Stack_t& stack) {
            // Made after the port, whose release at the thread's end would come too late.
            static thread_local const AtThreadEnd atEnd{LocalPort_t::GetLocalPort().Name(),
                                                        *Pop<std::promise<std::wstring>*>(stack)};
            throw 1;
        },
        arguments);
    Stack_t message = Stack(1);
    EXPECT_THROW(MessagePort_t(name.get_future().get()).SendStack(gcAsyncCall, message, L""), Exception_t);
    EXPECT_THAT(log, ElementsAre(StartsWith("Unknown exception caught at libs/THR/mac/THR_Thread, ")));
}

}  // namespace
}  // namespace thr
