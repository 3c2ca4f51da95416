#import <Foundation/Foundation.h>

#ifdef __cplusplus
extern "C" {
#endif
// Every method of the two protocols, in the order of declaration; ends with a null one. This runtime keeps no
// list of a protocol's optional methods to compare with: the compiler refuses a selector that the protocols
// do not declare.
extern SEL const* kivStressPortDelegateSelectors(void);
extern SEL const* ORSSerialPortDelegateSelectors(void);
#ifdef __cplusplus
}
#endif
