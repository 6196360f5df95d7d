#include <grpcpp/completion_queue.h>
#include <grpcpp/support/async_stream.h>
#include <grpcpp/support/async_unary_call.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <utility>

#include "store/Connection.h"
#include "store/Faults.h"
#include "store/Store.h"
#include "store/StoreImpl.h"

namespace fleet {

using namespace etcdserverpb;

// A stream of what happens, and beside it, over the same connection, the beats: linearizable questions how many keys
// there are. The stream alone tells neither of a store that is silent nor of one that went back behind the revision
// that is watched from, where it would wait for ever; the answer to a beat tells of both. All of it goes on inside of
// next(), in the thread that calls it.
class StoreWatch::Impl {
public:
    using Clock = std::chrono::steady_clock;

    Impl(const Session& session, const std::string& endpoint, const std::string& prefix, std::int64_t from,
         StoreHead seen, Options options)
        : session_(session),
          connection_(session_, endpoint),
          every_(options.beatMilliseconds),
          cluster_(seen.cluster),
          told_(std::max(from - 1, std::int64_t{0})),
          seen_(std::max(seen.revision, told_)) {
        connection_.signIn();
        connection_.introduce(context_);
        setPrefix(prefix, beat_.request.mutable_key(), beat_.request.mutable_range_end());
        beat_.request.set_count_only(true);
        WatchCreateRequest* const create = wanted_.mutable_create_request();
        setPrefix(prefix, create->mutable_key(), create->mutable_range_end());
        create->set_start_revision(from);
        create->set_fragment(true);
        stream_ = connection_.watches().AsyncWatch(&context_, &queue_, &opened_);
        begin();
    }

    ~Impl() { end(); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    std::optional<News> next(std::chrono::milliseconds duration) {
        const Clock::time_point until = Clock::now() + duration;
        while (news_.empty() && fault_ == nullptr) {
            if (!beat_.underWay && Clock::now() >= beat_.due) {
                sendBeat();
            }
            if (!step(beat_.underWay ? until : std::min(until, beat_.due)) && Clock::now() >= until) {
                return std::nullopt;
            }
        }
        if (news_.empty()) {
            throw StoreFailure(*fault_);
        }
        News first = std::move(news_.front());
        news_.pop_front();
        return first;
    }

private:
    struct Beat {
        RangeRequest request;
        RangeResponse answer;
        grpc::Status status;
        std::unique_ptr<grpc::ClientContext> context;
        std::unique_ptr<grpc::ClientAsyncResponseReader<RangeResponse>> call;
        bool underWay = false;
        bool renewedToken = false;
        Clock::time_point due;
    };

    // Until the store has taken the watch, and is the one that was listed.
    void begin() {
        const Clock::time_point until = Clock::now() + CALL_LIMIT;
        sendBeat();
        while ((!created_ || beat_.underWay) && fault_ == nullptr) {
            if (!step(until) && Clock::now() >= until) {
                fail(failureOf(Trouble::UNREACHED, connection_.endpoint(), "no answer to a watch in 5 s"));
            }
        }
        // It was no news.
        if (news_.size() == 1 && news_.front().events.empty()) {
            news_.clear();
        }
        if (fault_ != nullptr) {
            const StoreFailure failure = *fault_;
            end();
            throw StoreFailure(failure);
        }
    }

    // Whatever is under way writes to members of this until the queue has given it back.
    void end() {
        context_.TryCancel();
        if (beat_.underWay) {
            beat_.context->TryCancel();
        }
        queue_.Shutdown();
        void* what = nullptr;
        bool good = false;
        while (queue_.Next(&what, &good)) {
        }
    }

    // One thing that was under way has come to an end; false: none until then.
    bool step(Clock::time_point until) {
        void* what = nullptr;
        bool good = false;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (queue_.AsyncNext(&what, &good, ahead(std::max(left, std::chrono::milliseconds(0)))) !=
            grpc::CompletionQueue::GOT_EVENT) {
            return false;
        }
        if (what == &opened_ && good) {
            stream_->Write(wanted_, &wanted_);
            stream_->Read(&answer_, &answer_);
        } else if (what == &answer_ && good) {
            take();
            stream_->Read(&answer_, &answer_);
        } else if (what == &opened_ || what == &answer_) {
            stream_->Finish(&finished_, &finished_);
        } else if (what == &finished_) {
            fail(finished_.ok() ? failureOf(Trouble::UNREACHED, connection_.endpoint(), "the store ended the watch")
                                : failureOf(finished_, connection_.endpoint(), Asked::READ));
        } else if (what == &beat_) {
            takeBeat();
        }
        return true;
    }

    void take() {
        checkCluster(answer_.header());
        if (answer_.canceled()) {
            fail(cancelled());
            return;
        }
        created_ = created_ || answer_.created();
        for (etcdserverpb::Event& one : *answer_.mutable_events()) {
            const bool deleted = one.type() == etcdserverpb::Event::DELETE;
            coming_.push_back({storedValue(std::move(*one.mutable_kv())), deleted});
        }
        tell();
    }

    // What came, but for the last revision where the rest of it is still to come. The header's own revision says
    // nothing here: the store may be ahead of what it has told.
    void tell() {
        auto end = coming_.end();
        while (answer_.fragment() && end != coming_.begin() &&
               std::prev(end)->now.modRevision == coming_.back().now.modRevision) {
            --end;
        }
        if (end == coming_.begin()) {
            return;
        }
        News told;
        std::move(coming_.begin(), end, std::back_inserter(told.events));
        coming_.erase(coming_.begin(), end);
        told_ = std::max(told_, told.events.back().now.modRevision);
        told.revision = told_;
        news_.push_back(std::move(told));
    }

    [[nodiscard]] StoreFailure cancelled() const {
        if (answer_.compact_revision() != 0) {
            return failureOf(Trouble::COMPACTED, connection_.endpoint(),
                             "compacted up to revision " + std::to_string(answer_.compact_revision()));
        }
        const std::string& reason = answer_.cancel_reason();
        return failureOf(
            grpc::Status(grpc::StatusCode::UNKNOWN, reason.empty() ? "the store cancelled the watch" : reason),
            connection_.endpoint(), Asked::READ);
    }

    void sendBeat() {
        beat_.context = std::make_unique<grpc::ClientContext>();
        beat_.context->set_deadline(ahead(CALL_LIMIT));
        connection_.introduce(*beat_.context);
        beat_.call = connection_.keys().AsyncRange(beat_.context.get(), beat_.request, &queue_);
        beat_.call->Finish(&beat_.answer, &beat_.status, &beat_);
        beat_.underWay = true;
    }

    void takeBeat() {
        beat_.underWay = false;
        beat_.due = Clock::now() + every_;
        if (wantsToken(beat_.status) && !session_.access.user.empty() && !beat_.renewedToken) {
            beat_.renewedToken = true;
            signInAnew();
            return;
        }
        if (!beat_.status.ok()) {
            fail(failureOf(beat_.status, connection_.endpoint(), Asked::READ));
            return;
        }
        beat_.renewedToken = false;
        const ResponseHeader& header = beat_.answer.header();
        checkCluster(header);
        if (header.revision() < std::max(seen_, told_)) {
            fail(failureOf(Trouble::RESET, connection_.endpoint(),
                           "the store is at revision " + std::to_string(header.revision()) + ", and was at " +
                               std::to_string(std::max(seen_, told_))));
        }
        seen_ = std::max(seen_, header.revision());
        news_.push_back({{}, told_});
    }

    void signInAnew() {
        try {
            connection_.signInAnew();
            sendBeat();
        } catch (const StoreFailure& failure) {
            fail(failure);
        }
    }

    void checkCluster(const ResponseHeader& header) {
        if (cluster_ != 0 && header.cluster_id() != cluster_) {
            fail(failureOf(Trouble::RESET, connection_.endpoint(), "another store answers there"));
        }
    }

    // The first one stays.
    void fail(const StoreFailure& failure) {
        if (fault_ == nullptr) {
            fault_ = std::make_unique<StoreFailure>(failure);
        }
    }

    Session session_;
    Connection connection_;
    std::chrono::milliseconds every_;
    std::uint64_t cluster_;
    std::int64_t told_;
    std::int64_t seen_;

    grpc::CompletionQueue queue_;
    grpc::ClientContext context_;
    char opened_ = 0;
    WatchRequest wanted_;
    WatchResponse answer_;
    grpc::Status finished_;
    std::unique_ptr<grpc::ClientAsyncReaderWriter<WatchRequest, WatchResponse>> stream_;
    bool created_ = false;
    Beat beat_;

    std::vector<StoreWatch::Event> coming_;
    std::deque<News> news_;
    std::unique_ptr<StoreFailure> fault_;
};

StoreWatch::StoreWatch(Store& store, const std::string& prefix, std::int64_t from, StoreHead seen)
    : StoreWatch(store, prefix, from, seen, Options()) {}

StoreWatch::StoreWatch(Store& store, const std::string& prefix, std::int64_t from, StoreHead seen, Options options) {
    try {
        impl_ = std::make_unique<Impl>(store.impl_->session, store.impl_->here(), prefix, from, seen, options);
    } catch (const StoreFailure& failure) {
        if (failure.trouble == Trouble::UNREACHED) {
            store.impl_->goOn();
        }
        throw;
    }
}

StoreWatch::~StoreWatch() = default;

std::optional<StoreWatch::News> StoreWatch::next(int milliseconds) {
    return impl_->next(std::chrono::milliseconds(milliseconds));
}

}  // namespace fleet
