#pragma once

#include <any>
#include <cstddef>
#include <memory>
#include <string>

#include "tarsil/serial/ORSSerialPacketDescriptor.hpp"
#include "tarsil/support/Uuid.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil {

/// Bytes to send together with the response that they should bring. Immutable. Any thread.
class ORSSerialRequest {
 public:
  using Descriptor = std::shared_ptr<ORSSerialPacketDescriptor>;
  using ResponseEvaluator = ORSSerialPacketDescriptor::ResponseEvaluator;

  struct WithDescriptor {
    Bytes dataToSend = {};
    /// Anything of the client's.
    std::any userInfo = {};
    /// Seconds from sending until the request is given up; 0 or less: never.
    double timeoutInterval = 0;
    /// Null: no response is expected, and the request is complete as soon as it is written.
    Descriptor responseDescriptor = {};
  };
  /// The older form: the response is whatever the evaluator accepts, of any length.
  struct WithEvaluator {
    Bytes dataToSend = {};
    std::any userInfo = {};
    double timeoutInterval = 0;
    ResponseEvaluator responseEvaluator = {};
  };

  static std::shared_ptr<ORSSerialRequest> requestWithDataToSend(Bytes dataToSend, std::any userInfo,
                                                                 double timeoutInterval,
                                                                 Descriptor responseDescriptor);
  static std::shared_ptr<ORSSerialRequest> requestWithDataToSend(Bytes dataToSend, std::any userInfo,
                                                                 double timeoutInterval,
                                                                 ResponseEvaluator responseEvaluator);
  /// No response is expected.
  static std::shared_ptr<ORSSerialRequest> requestWithDataToSend(Bytes dataToSend, std::any userInfo,
                                                                 double timeoutInterval, std::nullptr_t);

  explicit ORSSerialRequest(WithDescriptor request);
  explicit ORSSerialRequest(WithEvaluator request);

  ORSSerialRequest(const ORSSerialRequest&) = delete;
  ORSSerialRequest& operator=(const ORSSerialRequest&) = delete;

  const Bytes& dataToSend() const { return dataToSend_; }
  const std::any& userInfo() const { return userInfo_; }
  double timeoutInterval() const { return timeoutInterval_; }
  const Descriptor& responseDescriptor() const { return responseDescriptor_; }
  const std::string& UUIDString() const { return uuidString_; }

  /// The response descriptor's verdict; true when there is none.
  bool dataIsValidResponse(ByteView response) const;

  /// One line for a log: the object's address, the bytes in hexadecimal, the user info when it is a text, and
  /// the time-out.
  std::string description() const;

 private:
  Bytes dataToSend_;
  std::any userInfo_;
  double timeoutInterval_;
  Descriptor responseDescriptor_;
  std::string uuidString_ = Uuid::random().string();
};

}  // namespace tarsil
