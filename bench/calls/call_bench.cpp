// A call to an object of another thread and its answer, through message ports, beside what Boost.Asio alone needs for
// that: a post to the other thread's io_context, and a std::promise for the answer. The two take turns, block by block,
// and the ratios are taken pair by pair: of the time that a call takes, and of the processor time of both threads. All
// threads share one processor, so that it counts what a call does and not where the system puts a thread. The
// first figures were 32 and 24. The goal is 2: a call has a name to be found by, a port of its own for the answer, and
// is told when the other thread ends meanwhile, each of which the bare pair does without.
//   call_bench [ROUNDS]
#include "GLO/GLO_AutoPtr.hpp"
#include "THR/THR_LocalPort.hpp"
#include "THR/THR_Object.hpp"
#include "THR/THR_RemoteReference.hpp"
#include "THR/THR_Stack.hpp"
#include "bench/Pairs.hpp"
#include "platform/Platform.hpp"
#include "platform/linux/loop/AsioRunLoop.hpp"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kCalls = 200;  // in a block

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "call_bench: %s\n", what);
    std::exit(1);
}

class Counter : public thr::Object_t {
  public:
    Counter() { AddReference(glo::AutoPtr<thr::LocalReference_t>(new thr::LocalReference_t(*this))); }

    static void add(thr::Object_t& object, thr::Stack_t& arguments, thr::Stack_t& result) {
        int number = 0;
        arguments >> number;
        result << (static_cast<Counter&>(object).mCount += number);
    }
    static void finish(thr::Object_t& object, thr::Stack_t&, thr::Stack_t&) {
        thr::LocalPort_t::GetLocalPort().RemoveReference(object.Id());
    }

  private:
    int mCount = 0;
};

class OwnThread {
  public:
    OwnThread() {
        std::promise<thr::Stack_t> address;
        mThread = std::thread([&address] {
            {
                const Counter counter;
                thr::Stack_t stack;
                counter.PushOnStack(stack);
                address.set_value(stack);
                counter.RunLoop();
            }
            thr::LocalPort_t::ReleaseLocalPort();
        });
        thr::Stack_t stack = address.get_future().get();
        mReference.reset(new thr::RemoteReference_t(stack));
    }
    ~OwnThread() {
        mReference->CallAsync(Counter::finish, {});
        mThread.join();
    }
    OwnThread(const OwnThread&) = delete;
    OwnThread& operator=(const OwnThread&) = delete;

    int add(int number) {
        thr::Stack_t arguments;
        arguments << number;
        thr::Stack_t result = mReference->CallSync(Counter::add, std::move(arguments));
        int sum = 0;
        result >> sum;
        return sum;
    }

  private:
    std::thread mThread;
    glo::AutoPtr<thr::RemoteReference_t> mReference;
};

class BareThread {
  public:
    ~BareThread() {
        mContext.stop();
        mThread.join();
    }
    BareThread() = default;
    BareThread(const BareThread&) = delete;
    BareThread& operator=(const BareThread&) = delete;

    int add(int number) {
        std::promise<int> sum;
        boost::asio::post(mContext, [&] { sum.set_value(mCount += number); });
        return sum.get_future().get();
    }

  private:
    boost::asio::io_context mContext;
    const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> mWork{mContext.get_executor()};
    int mCount = 0;
    std::thread mThread{[this] { mContext.run(); }};
};

/// Of one call, in microseconds.
struct Cost {
    double elapsed, processor;
};

double processorTime() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    const auto microseconds = [](const timeval& time) { return 1e6 * double(time.tv_sec) + double(time.tv_usec); };
    return microseconds(used.ru_utime) + microseconds(used.ru_stime);
}

Cost block(auto& thread) {
    const double used = processorTime();
    const auto start = Clock::now();
    const int before = thread.add(0);
    for (int i = 1; i < kCalls; ++i) {
        if (thread.add(1) != before + i) fail("a wrong answer");
    }
    return {std::chrono::duration<double, std::micro>(Clock::now() - start).count() / kCalls,
            (processorTime() - used) / kCalls};
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 101;
    cpu_set_t here;
    CPU_ZERO(&here);
    CPU_SET(::sched_getcpu(), &here);
    if (::sched_setaffinity(0, sizeof here, &here) != 0) fail("the threads can't be kept on one processor");
    platform::AsioRunLoops loops;
    const platform::PlatformScope scope({.runLoops = &loops});
    bench::Pairs elapsed, processor;
    {
        OwnThread own;
        BareThread other;
        for (int i = 0; i < rounds; ++i) {
            const Cost ours = block(own);
            const Cost bare = block(other);
            elapsed.Add(ours.elapsed, bare.elapsed);
            processor.Add(ours.processor, bare.processor);
        }
    }
    thr::LocalPort_t::ReleaseLocalPort();
    const std::string what = "call and answer between two threads, ";
    elapsed.Tell(what + "elapsed", "Asio's post and a promise", "us", 1, " (goal 2.0)");
    processor.Tell(what + "processor time", "Asio's post and a promise", "us", 1, " (goal 2.0)");
}
