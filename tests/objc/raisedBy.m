#import "raisedBy.h"

NSException* raisedByFunction(void (*work)(void* context), void* context) {
  @try {
    work(context);
  } @catch (NSException* exception) {
    return exception;
  }
  return nil;
}
