// VelcanCommand::Run: one run, in the order it happens, on the caller's thread, over the system's
// pipes, wait set and child (pipe.h, wait_set.h, child.h).
#include "velcan/process/command.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <string>
#include <vector>

#include "process/child.h"
#include "process/command_state.h"
#include "process/pipe.h"
#include "process/relay.h"
#include "process/wait_set.h"

namespace velcan {
namespace {

using sys::Channel;
using sys::Io;

long long nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// `ms` after `now`, or kForever for no time (0), kForever or more than the clock holds.
long long after(long long now, long long ms) {
    return ms == 0 || ms == kForever || ms > LLONG_MAX - now ? kForever : now + ms;
}

// How long to wait for the earliest of the times given, from `now`; kForever for none.
struct Timeout {
    explicit Timeout(long long from) : now(from) {}
    long long now;
    long long ms = kForever;
    void until(long long when) {
        if (when != kForever) {
            const long long left = std::max(when - now, 0LL);
            ms = ms == kForever ? left : std::min(ms, left);
        }
    }
};

// One of the child's output streams, relayed to its observer up to its cap; past the cap it is
// read and dropped, so the child never blocks.
struct OutputStream {
    Channel channel;
    Relay relay{nullptr};
    std::size_t cap = static_cast<std::size_t>(-1);
    std::size_t handed = 0;
    bool cut = false; // bytes past the cap were dropped

    long open(IBlockingProcessObserver* observer, std::size_t limit, sys::Handle* childEnd) {
        relay = Relay(observer);
        cap = limit;
        return channel.open(true, childEnd);
    }

    // Reads and hands on what is there, at most 16 pieces, so that a child that writes without
    // pause cannot keep the run from its time limit and cancel. The first failure of a read
    // goes to *error.
    void pump(long* error) {
        for (int reads = 0; reads < 16 && channel.isOpen() && !channel.isPending(); ++reads) {
            char* into = nullptr;
            std::size_t room = 0;
            dropping_ = handed >= cap;
            if (dropping_) {
                sink_.resize(1 << 16);
                into = sink_.data();
                room = sink_.size();
            } else if (relay.askForRoom()) {
                into = relay.room();
                room = std::min(relay.roomSize(), cap - handed);
            } else {
                channel.close();
                return;
            }
            std::size_t n = 0;
            const Io io = channel.read(into, room, &n, error);
            take(io, n);
        }
    }
    void fired(long* error) {
        if (channel.isPending()) {
            std::size_t n = 0;
            const Io io = channel.complete(&n, error);
            take(io, n);
        }
        pump(error);
    }

  private:
    void take(Io io, std::size_t n) {
        if (io == Io::Done && n > 0) {
            if (dropping_) {
                cut = true;
            } else {
                relay.deliver(n);
                handed += n;
            }
        } else if (io == Io::Ended) {
            channel.close();
        }
    }
    bool dropping_ = false; // the read under way goes to the sink
    std::vector<char> sink_;
};

// The input from memory, written as the child takes it, then closed.
struct InputStream {
    Channel channel;
    const char* next = nullptr;
    std::size_t left = 0;

    void pump() {
        while (channel.isOpen() && !channel.isPending() && left > 0) {
            std::size_t n = 0;
            const Io io = channel.write(next, std::min<std::size_t>(left, 1 << 16), &n);
            take(io, n);
        }
        if (left == 0) {
            channel.close();
        }
    }
    void fired() {
        if (channel.isPending()) {
            std::size_t n = 0;
            long ignored = 0;
            const Io io = channel.complete(&n, &ignored);
            take(io, n);
        }
        pump();
    }

  private:
    void take(Io io, std::size_t n) {
        if (io == Io::Done) {
            next += n;
            left -= n;
        } else if (io == Io::Ended) {
            channel.close(); // the child closed its end
            left = 0;
        }
    }
};

class Run {
  public:
    // The time limit counts from here: from the next whole millisecond, as the clock is read
    // in whole milliseconds, so that the limit never strikes before its time.
    explicit Run(const VelcanCommandState& command)
        : command_(command), deadline_(after(nowMs() + 1, millisecondsOf(command.timeLimit))) {}
    VelcanRunResult go();
    bool outputCut() const { return output_.cut; }
    bool errorsCut() const { return errors_.cut; }
    // How the child itself ended (Exited or Signaled), once it was reaped.
    bool reaped() const { return reaped_; }
    VelcanRunEnd childEnd() const { return childEnd_; }

  private:
    enum class Phase { Running, Terminating, Killed };

    long setUpStreams(sys::StandardHandles* child);
    void relayAndWait();
    bool actOnTime(long long now);
    void waitOnce(long long now);
    bool reading() const { return output_.channel.isOpen() || errors_.channel.isOpen(); }
    void end(VelcanRunEnd why);
    void killAfterGrace(long long now);
    void killed(long long now);
    VelcanRunResult result();

    const VelcanCommandState& command_;
    const long long deadline_;
    sys::Child child_;
    OutputStream output_;
    OutputStream errors_;
    InputStream input_;
    sys::Native cancel_ = sys::kNone;
    Phase phase_ = Phase::Running;
    // TimedOut or Cancelled once the limit or the cancel ended the run; Exited till then.
    VelcanRunEnd endedBy_ = VelcanRunEnd::Exited;
    bool childEnded_ = false;
    long long killAt_ = kForever;
    long long stopReadingAt_ = kForever;
    long error_ = 0;
    VelcanRunEnd childEnd_ = VelcanRunEnd::Exited;
    bool reaped_ = false;
};

VelcanRunResult Run::go() {
    // The command, and a cancel that allows a start.
    std::vector<std::string> argv;
    if (int refusal = checkCommand(command_, &argv)) {
        return notRun(VelcanRunEnd::Refused, refusal, refusal);
    }
    if (command_.cancel != nullptr) {
        if (int error = VelcanCancelAccess::error(*command_.cancel)) {
            return notRun(VelcanRunEnd::SetupFailed, error, error);
        }
        if (command_.cancel->IsCancelled()) {
            return notRun(VelcanRunEnd::Cancelled, ECANCELED, ECANCELED);
        }
        cancel_ = VelcanCancelAccess::handle(*command_.cancel);
    }
    // The streams, then the child, which takes its ends of them.
    sys::StandardHandles handles;
    if (long error = setUpStreams(&handles)) {
        return notRun(VelcanRunEnd::SetupFailed, sys::errnoOf(error), error);
    }
    VelcanRunResult notStarted{};
    if (!child_.start(command_, argv, &handles, &notStarted)) {
        return notStarted;
    }
    relayAndWait();
    // Whatever of an ended run is left (a process that ignored SIGTERM and closed its output)
    // is killed before the child is reaped and its id stops naming the group.
    if (phase_ == Phase::Terminating) {
        child_.endTree(false);
    }
    return result();
}

long Run::setUpStreams(sys::StandardHandles* child) {
    long error = 0;
    switch (command_.input) {
    case VelcanCommandState::Input::NullDevice:
        error = sys::openNullDevice(false, &child->input);
        break;
    case VelcanCommandState::Input::File:
        error = sys::openInputFile(command_.inputFile, &child->input);
        break;
    case VelcanCommandState::Input::Inherited:
        error = sys::duplicateStandardHandle(0, &child->input);
        break;
    case VelcanCommandState::Input::Bytes:
        error = input_.channel.open(false, &child->input);
        input_.next = command_.inputBytes;
        input_.left = command_.inputSize;
        break;
    }
    if (error != 0) {
        return error;
    }
    // The caller's own, an observer's pipe, or (no observer) the null device. No error
    // observer: errors go with the output.
    error = command_.inheritOutput ? sys::duplicateStandardHandle(1, &child->output)
            : command_.output == nullptr
                ? sys::openNullDevice(true, &child->output)
                : output_.open(command_.output, command_.outputLimit, &child->output);
    if (error == 0 && command_.inheritErrors) {
        error = sys::duplicateStandardHandle(2, &child->errors);
    } else if (error == 0 && command_.errors != nullptr) {
        error = errors_.open(command_.errors, command_.errorLimit, &child->errors);
    }
    return error;
}

void Run::relayAndWait() {
    input_.pump();
    output_.pump(&error_);
    errors_.pump(&error_);
    while (!childEnded_ || reading()) {
        // A limit asked to end the run once it cut its stream.
        if ((output_.cut && command_.endAtOutputLimit) ||
            (errors_.cut && command_.endAtErrorLimit)) {
            end(VelcanRunEnd::Cancelled);
        }
        const long long now = nowMs();
        if (!actOnTime(now)) {
            waitOnce(now);
        }
    }
}

// Whatever time has come: the limit ends the run, the grace's end kills what is left, and once
// the run was killed the output is read a little longer only. True when it closed the streams.
bool Run::actOnTime(long long now) {
    if (phase_ == Phase::Running && deadline_ != kForever && now >= deadline_) {
        end(VelcanRunEnd::TimedOut);
    }
    if (phase_ == Phase::Terminating && killAt_ != kForever && now >= killAt_) {
        killAfterGrace(now);
    }
    if (phase_ == Phase::Killed && now >= stopReadingAt_ && reading()) {
        output_.channel.close();
        errors_.channel.close();
        return true;
    }
    return false;
}

// Waits for the first of what can happen next, or the next time to act on, and serves it.
void Run::waitOnce(long long now) {
    // The cancel first: where one ready thing is told at a time, a busy stream cannot hide it.
    sys::WaitSet waits;
    const int cancel = waits.add(phase_ == Phase::Running ? cancel_ : sys::kNone);
    const int out = waits.add(output_.channel);
    const int err = waits.add(errors_.channel);
    const int in = waits.add(input_.channel);
    const sys::Native childEnd = childEnded_ ? sys::kNone : child_.endWaitable();
    const int ended = waits.add(childEnd);
    Timeout timeout(now);
    timeout.until(phase_ == Phase::Running ? deadline_ : kForever);
    timeout.until(phase_ == Phase::Terminating ? killAt_ : kForever);
    timeout.until(phase_ == Phase::Killed && reading() ? stopReadingAt_ : kForever);
    // Where the system gives nothing to wait on for the child's end, a look every 50 ms.
    timeout.until(!childEnded_ && childEnd == sys::kNone ? now + 50 : kForever);
    waits.wait(timeout.ms);

    if (waits.fired(cancel)) {
        end(VelcanRunEnd::Cancelled);
    }
    if (waits.fired(in)) {
        input_.fired();
    }
    if (waits.fired(out)) {
        output_.fired(&error_);
    }
    if (waits.fired(err)) {
        errors_.fired(&error_);
    }
    if (!childEnded_ && (waits.fired(ended) || (childEnd == sys::kNone && child_.hasEnded()))) {
        childEnded_ = true;
        input_.channel.close();
        if (command_.endOthersWithChild) {
            end(VelcanRunEnd::Exited);
        }
    }
}

// Ends the child's whole tree: gently first where there is a grace period and the system has a
// gentle end, for good once the grace is over.
void Run::end(VelcanRunEnd why) {
    if (phase_ != Phase::Running) {
        return;
    }
    endedBy_ = why;
    input_.channel.close();
    const long long now = nowMs();
    const long long grace = millisecondsOf(command_.gracePeriod);
    phase_ = Phase::Terminating;
    if (child_.endTree(grace != 0)) {
        killed(now);
    } else {
        killAt_ = after(now, grace);
    }
}

void Run::killAfterGrace(long long now) {
    child_.endTree(false);
    killed(now);
}

// What still holds the output once the tree is killed is outside the group or job, out of the
// run's reach: it is read a little longer only.
void Run::killed(long long now) {
    phase_ = Phase::Killed;
    stopReadingAt_ = now + 250;
}

VelcanRunResult Run::result() {
    VelcanRunResult result = child_.reap();
    childEnd_ = result.end;
    reaped_ = true;
    if (result.error == 0 && error_ != 0) {
        result.error = sys::errnoOf(error_);
        result.systemError = error_;
    }
    if (endedBy_ != VelcanRunEnd::Exited) {
        result.end = endedBy_;
    }
    return result;
}

} // namespace
} // namespace velcan

VelcanRunResult VelcanCommand::Run() {
    return Run(nullptr);
}

VelcanRunResult VelcanCommand::Run(VelcanRunDetails* details) {
    const velcan::sys::KeepCallersErrors kept;
    velcan::Run run(*state_);
    const VelcanRunResult result = run.go();
    if (details != nullptr && details->size >= sizeof(VelcanRunDetails)) {
        details->childEnd = run.reaped() ? run.childEnd() : result.end;
        details->outputCut = run.outputCut();
        details->errorsCut = run.errorsCut();
    }
    return result;
}
