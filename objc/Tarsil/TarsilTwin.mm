#import "Tarsil/TarsilTwin.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#import "Tarsil/detail/convert.h"
#import "Tarsil/detail/twin.h"

namespace {

/// A key that has been observed, and its value before the next change.
struct ObservedKey {
  tarsil::Observation observation;
  id value = nil;
};

}  // namespace

struct TarsilTwinState {
  const void* key = nullptr;
  /// While the host holds the twin.
  std::shared_ptr<void> object;
  /// While only the C++ library holds the object: the twin waits to be asked for again.
  std::weak_ptr<void> waiting;
  std::shared_ptr<void> kept;
  std::mutex observedMutex;
  std::map<std::string, ObservedKey> observed;
};

@interface TarsilTwin ()
- (TarsilTwinState*)tarsilState;
- (void)setTarsilState:(TarsilTwinState*)state;
- (void)tarsilDidChange:(const tarsil::KeyChange&)change;
- (id)tarsilValueForKey:(NSString*)key;
@end

namespace {

using State = TarsilTwinState;

/// All twins by the address of their objects. Its mutex is held for nothing that could call back.
struct Twins {
  std::mutex mutex;
  std::map<const void*, TarsilTwin*> byObject;

  static Twins& all() {
    // Never destroyed: static objects may release twins while the process ends.
    static auto& twins = *new Twins;
    return twins;
  }

  /// The twin with one reference more, for an object that is alive; else nil. The twin of an object that is
  /// gone, whose address may have a new owner, is moved to `dead`.
  TarsilTwin* take(const void* key, std::vector<TarsilTwin*>& dead) {
    const auto found = byObject.find(key);
    if (found == byObject.end()) return nil;
    TarsilTwin* const twin = found->second;
    State& state = *[twin tarsilState];
    if (state.object) return [twin retain];
    // The reference with which the twin waited becomes the caller's.
    if ((state.object = state.waiting.lock())) return twin;
    dead.push_back(twin);
    byObject.erase(found);
    return nil;
  }

  /// Also looks for twins whose objects are gone: they end here.
  void add(TarsilTwin* twin, std::shared_ptr<void> object, std::vector<TarsilTwin*>& dead) {
    for (auto entry = byObject.begin(); entry != byObject.end();) {
      const State& other = *[entry->second tarsilState];
      if (other.object || !other.waiting.expired()) {
        ++entry;
        continue;
      }
      dead.push_back(entry->second);
      entry = byObject.erase(entry);
    }
    auto* const state = new State;
    state->key = object.get();
    state->object = std::move(object);
    [twin setTarsilState:state];
    byObject[state->key] = twin;
  }
};

void bury(const std::vector<TarsilTwin*>& dead) {
  for (TarsilTwin* twin : dead) [twin dealloc];
}

/// While it exists, the key has its old value on this thread: observers are told of a change that has been
/// made already.
class OldValue {
 public:
  OldValue(TarsilTwin* twin, NSString* key, id value)
      : twin_(twin), key_(key), value_(value), outer_(current) {
    current = this;
  }
  ~OldValue() { current = outer_; }
  OldValue(const OldValue&) = delete;
  OldValue& operator=(const OldValue&) = delete;

  /// NSNull for nil; nil when the key has the value that it has.
  static id of(TarsilTwin* twin, NSString* key) {
    const bool isOld =
        current != nullptr && current->twin_ == twin && [current->key_ isEqualToString:key] != NO;
    return isOld ? current->value_ : nil;
  }

 private:
  static thread_local OldValue* current;

  TarsilTwin* twin_;
  NSString* key_;
  id value_;
  OldValue* outer_;
};
thread_local OldValue* OldValue::current = nullptr;

}  // namespace

namespace tarsil::objc {

id existingTwinOf(const void* object) {
  std::vector<TarsilTwin*> dead;
  TarsilTwin* twin = nil;
  {
    const std::lock_guard lock(Twins::all().mutex);
    twin = Twins::all().take(object, dead);
  }
  bury(dead);
  return [twin autorelease];
}

id twinOf(const std::shared_ptr<void>& object, Class kind) {
  if (!object) return nil;
  std::vector<TarsilTwin*> dead;
  TarsilTwin* twin = nil;
  {
    const std::lock_guard lock(Twins::all().mutex);
    twin = Twins::all().take(object.get(), dead);
    if (twin == nil) {
      twin = [kind alloc];
      Twins::all().add(twin, object, dead);
    }
  }
  bury(dead);
  return [twin autorelease];
}

id adopt(TarsilTwin* twin, std::shared_ptr<void> object) {
  if (!object) {
    [twin release];
    return nil;
  }
  std::vector<TarsilTwin*> dead;
  {
    const std::lock_guard lock(Twins::all().mutex);
    Twins::all().add(twin, std::move(object), dead);
  }
  bury(dead);
  return twin;
}

std::shared_ptr<void> objectOf(TarsilTwin* twin) {
  if (twin == nil) return nullptr;
  const State* const state = [twin tarsilState];
  if (state == nullptr) return nullptr;
  const std::lock_guard lock(Twins::all().mutex);
  return state->object ? state->object : state->waiting.lock();
}

void keep(TarsilTwin* twin, std::shared_ptr<void> kept) {
  [twin tarsilState]->kept.swap(kept);
}

}  // namespace tarsil::objc

@implementation TarsilTwin

- (TarsilTwinState*)tarsilState {
  return _state;
}
- (void)setTarsilState:(TarsilTwinState*)state {
  _state = state;
}

// The last reference of the host is no end while the C++ library holds the object: the twin waits, and holds
// the object no longer.
- (oneway void)release {
  std::shared_ptr<void> object;
  State* const state = _state;
  {
    const std::lock_guard lock(Twins::all().mutex);
    if (!NSDecrementExtraRefCountWasZero(self)) return;
    if (state != nullptr) {
      object.swap(state->object);
      if (object.use_count() > 1) {
        state->waiting = object;
        return;  // `object` outlives the lock
      }
      Twins::all().byObject.erase(state->key);
    }
  }
  [self dealloc];
}

- (void)dealloc {
  if (_state != nullptr) {
    for (auto& [key, observed] : _state->observed) [observed.value release];
    delete _state;
  }
  [super dealloc];
}

- (tarsil::Observable*)tarsilObservable {
  return nullptr;
}

- (void)addObserver:(NSObject*)observer
         forKeyPath:(NSString*)keyPath
            options:(NSKeyValueObservingOptions)options
            context:(void*)context {
  [super addObserver:observer forKeyPath:keyPath options:options context:context];
  tarsil::Observable* const observable = [self tarsilObservable];
  NSString* const key = [[keyPath componentsSeparatedByString:@"."] objectAtIndex:0];
  if (observable == nullptr || ![self respondsToSelector:NSSelectorFromString(key)]) return;
  State& state = *_state;
  const std::lock_guard lock(state.observedMutex);
  ObservedKey& observed = state.observed[tarsil::objc::textOf(key)];
  if (observed.value != nil) return;
  observed.value = [[self tarsilValueForKey:key] retain];
  const void* const object = state.key;
  observed.observation =
      observable->observe(tarsil::objc::textOf(key), [object](const tarsil::KeyChange& change) {
        tarsil::objc::inPool([&] { [tarsil::objc::existingTwinOf(object) tarsilDidChange:change]; });
      });
}

// Never nil, so that it can be stored.
- (id)tarsilValueForKey:(NSString*)key {
  id value = [super valueForKey:key];
  return value == nil ? [NSNull null] : value;
}

- (id)valueForKey:(NSString*)key {
  id const old = OldValue::of(self, key);
  if (old != nil) return old == [NSNull null] ? nil : old;
  return [super valueForKey:key];
}

// The C++ object has changed already; observers are told both values all the same.
- (void)tarsilDidChange:(const tarsil::KeyChange&)change {
  NSString* const key = tarsil::objc::stringOf(change.key);
  id const newValue = [[self tarsilValueForKey:key] retain];
  id oldValue = nil;
  {
    const std::lock_guard lock(_state->observedMutex);
    oldValue = std::exchange(_state->observed[change.key].value, newValue);
  }
  [oldValue autorelease];
  NSMutableIndexSet* const indexes = [NSMutableIndexSet indexSet];
  for (const std::size_t index : change.indexes) [indexes addIndex:index];

  const bool isSetting = change.kind == tarsil::KeyChange::Kind::setting;
  const NSKeyValueChange kind =
      change.kind == tarsil::KeyChange::Kind::insertion ? NSKeyValueChangeInsertion : NSKeyValueChangeRemoval;
  {
    const OldValue old(self, key, oldValue);
    if (isSetting) {
      [self willChangeValueForKey:key];
    } else {
      [self willChange:kind valuesAtIndexes:indexes forKey:key];
    }
  }
  if (isSetting) {
    [self didChangeValueForKey:key];
  } else {
    [self didChange:kind valuesAtIndexes:indexes forKey:key];
  }
}

@end
