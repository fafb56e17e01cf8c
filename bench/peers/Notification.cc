// A write of an attribute that somebody watches. The candidates do the same: compare, store, and
// call a member function of each subscriber, an object of its own.
#include <functional>
#include <malloc.h>
#include <memory>

#include <boost/signals2.hpp>
#include <sigc++/sigc++.h>

#include "bench/peers/Recorder.h"
#include "bench/peers/Rows.h"
#include "bench/peers/Timing.h"
#include "runtime/Record.h"

namespace Peers {

class Counter : public Vesk::Entity {
  VESK_LOCAL_RECORD(Peers::Counter)
  VESK_VALUE(std::uint32_t, value)
};

class CountSm : public Vesk::Machine {
  VESK_LOCAL_RECORD(Peers::CountSm)
  CountSm(const Ombra::Ptr<Counter const>& counter, std::uint64_t* events)
      : events_(events), value_(watch<&CountSm::handleValue>(counter, Counter::valueAttr)) {}

 private:
  void handleValue() { ++*events_; }
  std::uint64_t* events_;
  Vesk::Watch value_;
};

namespace {

struct Subscriber {
  std::uint64_t* events;
  void handleValue() { ++*events; }
};

class VectorSignal {
 public:
  void connect(Subscriber& subscriber) {
    calls_.emplace_back([&subscriber] { subscriber.handleValue(); });
  }
  void operator()() const {
    for (const auto& call : calls_)
      call();
  }

 private:
  std::vector<std::function<void()>> calls_;
};

class SigcSignal {
 public:
  void connect(Subscriber& subscriber) {
    signal_.connect(sigc::mem_fun(subscriber, &Subscriber::handleValue));
  }
  void operator()() const { signal_(); }

 private:
  sigc::signal<void()> signal_;
};

template <class Mutex>
class BoostSignal {
 public:
  void connect(Subscriber& subscriber) {
    signal_.connect([&subscriber] { subscriber.handleValue(); });
  }
  void operator()() { signal_(); }

 private:
  typename boost::signals2::signal_type<void(), boost::signals2::keywords::mutex_type<Mutex>>::type
      signal_;
};

/// What is watched, and who watches it, with a signal of the given kind.
template <class Signal_>
struct WithSignal {
  using Signal = Signal_;
  class Object {
   public:
    void valueIs(std::uint32_t value) {
      if (value_ == value) return;
      value_ = value;
      signal_();
    }
    Signal& signal() { return signal_; }

   private:
    std::uint32_t value_ = 0;
    Signal signal_;
  };
  using ObjectPtr = std::unique_ptr<Object>;
  using SubscriberPtr = std::unique_ptr<Subscriber>;
  static ObjectPtr make() { return std::make_unique<Object>(); }
  static SubscriberPtr subscribe(const ObjectPtr& object, std::uint64_t* events) {
    auto subscriber = std::make_unique<Subscriber>(Subscriber{events});
    object->signal().connect(*subscriber);
    return subscriber;
  }
};

struct WithAttribute {
  using Signal = Vesk::Publisher;
  using ObjectPtr = Ombra::Ptr<Counter>;
  using SubscriberPtr = Ombra::Ptr<CountSm>;
  static ObjectPtr make() { return Ombra::make<Counter>(); }
  static SubscriberPtr subscribe(const ObjectPtr& object, std::uint64_t* events) {
    return Ombra::make<CountSm>(object, events);
  }
};

std::size_t heapBytes() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void requireEvents(std::uint64_t events, std::uint64_t expected) {
  if (events != expected) throw std::runtime_error("a notice was lost, or one too many came");
}

template <class Kind>
double writeNs(std::size_t subscribers, std::size_t writes) {
  const auto object = Kind::make();
  std::uint64_t events = 0;
  std::vector<typename Kind::SubscriberPtr> keep;
  for (std::size_t i = 0; i < subscribers; ++i)
    keep.push_back(Kind::subscribe(object, &events));
  const double time = nsPer(writes, [&] {
    for (std::size_t i = 1; i <= writes; ++i) {
      DoNotOptimize(object.get());
      object->valueIs(static_cast<std::uint32_t>(i));
      benchmark::ClobberMemory();
    }
  });
  requireEvents(events, subscribers * writes);
  return time;
}

/// Many objects with one subscriber each, visited in another order than they were made in.
template <class Kind>
double coldWriteNs(std::size_t objects) {
  std::vector<typename Kind::ObjectPtr> all;
  for (std::size_t i = 0; i < objects; ++i)
    all.push_back(Kind::make());
  std::uint64_t events = 0;
  std::vector<typename Kind::SubscriberPtr> keep;
  for (const std::uint32_t i : shuffled(objects, 1))
    keep.push_back(Kind::subscribe(all[i], &events));
  const auto order = shuffled(objects, 2);
  const double time = nsPer(objects, [&] {
    for (const std::uint32_t i : order) {
      all[i]->valueIs(1);
      benchmark::ClobberMemory();
    }
  });
  requireEvents(events, objects);
  return time;
}

/// What an object pays for the possibility to be watched.
template <class Kind>
double bytesUnwatched() {
  constexpr std::size_t count = 10000;
  const std::size_t before = heapBytes();
  const auto signals = std::make_unique<typename Kind::Signal[]>(count);
  return static_cast<double>(heapBytes() - before) / static_cast<double>(count);
}

template <class Kind>
Candidate candidate(std::string name, bool isOurs, const Options& options) {
  return {std::move(name), isOurs, [options](Recorder& recorder) {
            const std::size_t writes = options.sized(500000, 1000);
            recorder.add("no subscriber", "ns", writeNs<Kind>(0, writes));
            recorder.add("1 subscriber", "ns", writeNs<Kind>(1, writes));
            recorder.add("4 subscribers", "ns", writeNs<Kind>(4, writes));
            recorder.add("cold objects", "ns", coldWriteNs<Kind>(options.sized(100000, 1000)));
            recorder.add("size unwatched", "bytes", bytesUnwatched<Kind>());
          }};
}

}  // namespace

Topic notification(const Options& options) {
  return {
      "notification",
      options.sized(15, 2),
      {candidate<WithAttribute>("attribute", true, options),
       candidate<WithSignal<VectorSignal>>("vector of std::function", false, options),
       candidate<WithSignal<SigcSignal>>("sigc++", false, options),
       candidate<WithSignal<BoostSignal<boost::signals2::mutex>>>("Boost.Signals2", false, options),
       candidate<WithSignal<BoostSignal<boost::signals2::dummy_mutex>>>("Boost.Signals2, no mutex",
                                                                        false, options)}};
}

}  // namespace Peers
