// Streams: what a pipeline does with an event on its way from an input to an output, one stage a
// line.
//
//   const auto proxied = from(igmpProxy, IgmpProxyStatus::igmpProxyVlanAttr).emit(keyOf);
//   const auto routed = from(gmpProxy, GmpProxyStatus::vrfToSbdVlanAttr)
//                           .foreach("( *vrfSm ).multicastIntf", svisOf)
//                           .filter("VlanIntfId::isVlanIntfId( intfId )", isVlan)
//                           .emit(vlanOf);
//   merge(proxied, routed).into(vlanToSbd, keyOf, valueOf);
//
// Owns: the stages behind it. An event runs through all of them inside the call that brought it
// along. No stage keeps an event: each works on the inputs as they stand, so that an event may come
// twice. Caveat: what a stage looks up it does not subscribe to; each such input is a stream of the
// merge as well.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/Trace.h"
#include "runtime/ValueTraits.h"

namespace Lynthe {

/// A row of an input has changed: what its machine handled last, and what stands there now.
template <class Key, class Value>
struct Change {
  Key key;
  std::optional<Value> old;
  std::optional<Value> now;
};

/// The key of a row inside a row.
template <class Outer, class Inner>
struct Nested {
  Outer outer;
  Inner inner;
};

/// One half of a change: a value that comes, or one that goes.
template <class Key, class Value>
struct Half {
  Key key;
  Value value;
  bool isInsert;
};

/// What a group holds after one of its members has come or gone: its first member by order, none if
/// the group is empty now.
template <class Event, class Member>
struct Grouped {
  Event event;
  std::optional<Member> first;
};

template <class Key>
std::string keyText(const Key& key) {
  return Vesk::textOf(key);
}
template <class Outer, class Inner>
std::string keyText(const Nested<Outer, Inner>& key) {
  return keyText(key.outer) + "," + keyText(key.inner);
}

template <class Event>
class Stream {
 public:
  using Sink = std::function<void(const Event&)>;

  explicit Stream(const Vesk::TraceHandle& trace)
      : trace_(&trace), sinks_(std::make_shared<std::vector<Sink>>()) {}

  /// The next stage; it hears each event after those that were added before it.
  void to(Sink sink) const { sinks_->push_back(std::move(sink)); }
  void push(const Event& event) const {
    for (const Sink& sink : *sinks_)
      sink(event);
  }

  /// Only the events that pass the test.
  template <class Test>
  [[nodiscard]] Stream filter(std::string_view text, Test test) const {
    return then<Event>([trace = trace_, text, test](const Event& event, const Stream& next) {
      if (test(event)) {
        next.push(event);
      } else if (auto t = trace->at(8)) {
        t << "filter( " << text << " ) failed, terminating pipeline";
      }
    });
  }
  /// An event for each element that `expand` finds for one.
  template <class Expand>
  [[nodiscard]] auto foreach (std::string_view text, Expand expand) const {
    using Element = typename std::invoke_result_t<Expand, const Event&>::value_type;
    return then<Element>(
        [trace = trace_, text, expand](const Event& event, const Stream<Element>& next) {
          const auto elements = expand(event);
          if (auto t = trace->at(8))
            t << " foreach( " << text << " ) flattening " << elements.size() << " elements";
          for (const Element& element : elements)
            next.push(element);
        });
  }
  /// Each event in another form.
  template <class Form>
  [[nodiscard]] auto emit(Form form) const {
    using Emitted = std::invoke_result_t<Form, const Event&>;
    return then<Emitted>(
        [form](const Event& event, const Stream<Emitted>& next) { next.push(form(event)); });
  }
  /// The change pair: first the value that comes, then, if it is another one, the value that goes.
  [[nodiscard]] auto halves() const requires requires(const Event& event) { *event.now; }
  {
    using Key = decltype(Event::key);
    using Value = typename decltype(Event::now)::value_type;
    return foreach ("[ ( new, true ), ( if ( old != new ) then old else None, false ) ]",
                    [](const Event& event) {
                      std::vector<Half<Key, Value>> halves;
                      if (event.now) halves.push_back({event.key, *event.now, true});
                      if (event.old && event.old != event.now)
                        halves.push_back({event.key, *event.old, false});
                      return halves;
                    });
  }
  /// A keyed collection of collections, an attribute of the pipeline: an event that inserts puts
  /// its member into the group of its key, any other takes it out. A group without members goes. An
  /// event that takes out what is not there ends here: nothing was derived from it.
  template <class Groups, class KeyOf, class MemberOf>
  [[nodiscard]] auto groupby(Groups groups, KeyOf keyOf, MemberOf memberOf) const {
    using Member = std::invoke_result_t<MemberOf, const Event&>;
    using Out = Grouped<Event, Member>;
    return then<Out>(
        [trace = trace_, groups, keyOf, memberOf](const Event& event, const Stream<Out>& next) {
          const auto key = keyOf(event);
          const Member member = memberOf(event);
          if (event.isInsert) {
            if (auto t = trace->at(8))
              t << "Inserting value true with key " << keyText(member)
                << " into groupby collection with key " << keyText(key);
            groups.insert(key, member);
          } else {
            if (auto t = trace->at(8))
              t << "Deleting key " << keyText(member) << " from groupby collection with key "
                << keyText(key);
            if (!groups.remove(key, member)) return;
          }
          next.push({event, groups.first(key)});
        });
  }
  /// The row that `valueOf` gives for the event is written under its key; the row goes if it gives
  /// none. The stream goes on behind it.
  template <class Output, class KeyOf, class ValueOf>
  const Stream& into(Output& output, KeyOf keyOf, ValueOf valueOf) const {
    to([&output, keyOf, valueOf](const Event& event) {
      output.into(keyOf(event), valueOf(event));
    });
    return *this;
  }

 private:
  template <class Next, class Stage>
  [[nodiscard]] Stream<Next> then(Stage stage) const {
    Stream<Next> next(*trace_);
    to([stage, next](const Event& event) { stage(event, next); });
    return next;
  }

  const Vesk::TraceHandle* trace_;
  std::shared_ptr<std::vector<Sink>> sinks_;
};

/// A stream that begins at an input, and who has to know of each change before any stage does:
/// indices, which mirror the input from the first pass on.
template <class Event>
class InputStream : public Stream<Event> {
 public:
  using typename Stream<Event>::Sink;
  explicit InputStream(const Vesk::TraceHandle& trace)
      : Stream<Event>(trace), indices_(std::make_shared<std::vector<Sink>>()) {}

  const InputStream& indexed(Sink index) const {
    indices_->push_back(std::move(index));
    return *this;
  }
  void index(const Event& event) const {
    for (const Sink& index : *indices_)
      index(event);
  }

 private:
  std::shared_ptr<std::vector<Sink>> indices_;
};

}  // namespace Lynthe
