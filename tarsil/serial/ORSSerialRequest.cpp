#include "tarsil/serial/ORSSerialRequest.hpp"

#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <sstream>
#include <utility>

#include "tarsil/support/hexText.hpp"

namespace tarsil {
namespace {

// "<494e4954 0a0d>": groups of four bytes.
std::string describe(const Bytes& bytes) {
  std::string text = "<";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0 && i % 4 == 0) text += ' ';
    text += lowerHexText(ByteView(&bytes[i], 1));
  }
  return text + ">";
}

std::string describe(const std::any& userInfo) {
  if (!userInfo.has_value()) return "(null)";
  if (const auto* text = std::any_cast<std::string>(&userInfo)) return *text;
  if (const auto* text = std::any_cast<const char*>(&userInfo)) return *text ? *text : "(null)";
  return "(object)";
}

// Six decimals, whatever the process's locale.
std::string describe(double number) {
  std::array<char, std::numeric_limits<double>::max_exponent10 + 16> text{};
  const auto result =
      std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, 6);
  return {text.data(), result.ptr};
}

std::string describe(const ORSSerialRequest& request) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "<ORSSerialRequest: " << static_cast<const void*>(&request) << ">";
  return text.str();
}

ORSSerialRequest::Descriptor descriptorFor(ORSSerialRequest::ResponseEvaluator evaluator) {
  constexpr std::uint64_t anyLength = std::numeric_limits<std::int64_t>::max();
  return std::make_shared<ORSSerialPacketDescriptor>(ORSSerialPacketDescriptor::Evaluated{
      .maximumPacketLength = anyLength, .responseEvaluator = std::move(evaluator)});
}

}  // namespace

std::shared_ptr<ORSSerialRequest> ORSSerialRequest::requestWithDataToSend(Bytes dataToSend, std::any userInfo,
                                                                          double timeoutInterval,
                                                                          Descriptor responseDescriptor) {
  return std::make_shared<ORSSerialRequest>(
      WithDescriptor{.dataToSend = std::move(dataToSend),
                     .userInfo = std::move(userInfo),
                     .timeoutInterval = timeoutInterval,
                     .responseDescriptor = std::move(responseDescriptor)});
}

std::shared_ptr<ORSSerialRequest> ORSSerialRequest::requestWithDataToSend(
    Bytes dataToSend, std::any userInfo, double timeoutInterval, ResponseEvaluator responseEvaluator) {
  return std::make_shared<ORSSerialRequest>(WithEvaluator{.dataToSend = std::move(dataToSend),
                                                          .userInfo = std::move(userInfo),
                                                          .timeoutInterval = timeoutInterval,
                                                          .responseEvaluator = std::move(responseEvaluator)});
}

std::shared_ptr<ORSSerialRequest> ORSSerialRequest::requestWithDataToSend(Bytes dataToSend, std::any userInfo,
                                                                          double timeoutInterval,
                                                                          std::nullptr_t) {
  return requestWithDataToSend(std::move(dataToSend), std::move(userInfo), timeoutInterval, Descriptor());
}

ORSSerialRequest::ORSSerialRequest(WithDescriptor request)
    : dataToSend_(std::move(request.dataToSend)),
      userInfo_(std::move(request.userInfo)),
      timeoutInterval_(request.timeoutInterval),
      responseDescriptor_(std::move(request.responseDescriptor)) {}

ORSSerialRequest::ORSSerialRequest(WithEvaluator request)
    : ORSSerialRequest(
          WithDescriptor{.dataToSend = std::move(request.dataToSend),
                         .userInfo = std::move(request.userInfo),
                         .timeoutInterval = request.timeoutInterval,
                         .responseDescriptor = descriptorFor(std::move(request.responseEvaluator))}) {}

bool ORSSerialRequest::dataIsValidResponse(ByteView response) const {
  return !responseDescriptor_ || responseDescriptor_->dataIsValidPacket(response);
}

std::string ORSSerialRequest::description() const {
  return describe(*this) + " data: " + describe(dataToSend_) + " userInfo: " + describe(userInfo_) +
         " timeout interval: " + describe(timeoutInterval_);
}

}  // namespace tarsil
