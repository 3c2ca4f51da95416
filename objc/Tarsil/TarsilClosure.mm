#import "Tarsil/TarsilClosure.h"

#include <objc/runtime.h>

#include <memory>

#import "Tarsil/detail/closure.h"
#import "Tarsil/detail/convert.h"

// The two functions of the blocks runtime that a compiler with blocks calls by itself; this one has none.
extern "C" void* _Block_copy(const void* block);
extern "C" void _Block_release(const void* block);

@interface TarsilClosure ()
- (instancetype)initWithFunction:(void (*)(void))function context:(void*)context;
- (void (*)(void))tarsilFunction;
- (void*)tarsilContext;
@end

namespace tarsil::objc {
namespace {

/// How every compiler with blocks lays one out.
struct Block {
  void* isa;
  int flags;
  int reserved;
  void (*invoke)(void);
};

/// A block, copied, or a closure, retained. No message is sent to a block: on this runtime it need not be an
/// object.
class Closure {
 public:
  explicit Closure(id closure)
      : isBlock_(object_getClass(closure) != [TarsilClosure class]),
        kept_(isBlock_ ? std::shared_ptr<void>(_Block_copy(closure), _Block_release)
                       : std::shared_ptr<void>([closure retain],
                                               [](id held) { inPool([held] { [held release]; }); })) {}

  id object() const { return static_cast<id>(kept_.get()); }

  /// Calls it with one object; a block gets itself first, a function its context last.
  template <class Result>
  Result call(id argument) const {
    if (isBlock_) {
      auto* const block = static_cast<Block*>(kept_.get());
      return reinterpret_cast<Result (*)(Block*, id)>(block->invoke)(block, argument);
    }
    TarsilClosure* const closure = object();
    return reinterpret_cast<Result (*)(id, void*)>([closure tarsilFunction])(argument,
                                                                             [closure tarsilContext]);
  }

 private:
  bool isBlock_;
  std::shared_ptr<void> kept_;
};

struct NamesClosure {
  Closure closure;
  void operator()(const std::vector<std::string>& names) const {
    inPool([&] { closure.call<void>(stringsOf(names)); });
  }
};

struct EvaluatorClosure {
  Closure closure;
  bool operator()(ByteView bytes) const {
    BOOL isPacket = NO;
    inPool([&] { isPacket = closure.call<BOOL>(dataOf(bytes)); });
    return isPacket != NO;
  }
};

}  // namespace

std::function<void(const std::vector<std::string>&)> namesFunction(id closure) {
  if (closure == nil) return {};
  return NamesClosure{Closure(closure)};
}

ORSSerialPacketDescriptor::ResponseEvaluator evaluatorFunction(id closure) {
  if (closure == nil) return {};
  return EvaluatorClosure{Closure(closure)};
}

id closureOf(const std::function<void(const std::vector<std::string>&)>& function) {
  const auto* const own = function.target<NamesClosure>();
  return own != nullptr ? own->closure.object() : nil;
}

id closureOf(const ORSSerialPacketDescriptor::ResponseEvaluator& function) {
  const auto* const own = function.target<EvaluatorClosure>();
  return own != nullptr ? own->closure.object() : nil;
}

}  // namespace tarsil::objc

@implementation TarsilClosure

+ (TarsilNamesClosure)namesFunction:(TarsilNamesFunction)function context:(void*)context {
  return [[[self alloc] initWithFunction:reinterpret_cast<void (*)()>(function) context:context] autorelease];
}

+ (TarsilEvaluatorClosure)evaluatorFunction:(TarsilEvaluatorFunction)function context:(void*)context {
  return [[[self alloc] initWithFunction:reinterpret_cast<void (*)()>(function) context:context] autorelease];
}

- (instancetype)initWithFunction:(void (*)(void))function context:(void*)context {
  if ((self = [super init]) != nil) {
    _function = function;
    _context = context;
  }
  return self;
}

- (void (*)(void))tarsilFunction {
  return _function;
}
- (void*)tarsilContext {
  return _context;
}

@end
