#include "tests/platform-udev/Testbed.hpp"

#include <umockdev.h>

#include <cstddef>
#include <stdexcept>

// umockdev answers from a thread of its own, in a way that the thread sanitizer cannot follow: neither it nor
// GLib is built for it. Only their own calls are left out.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libumockdev.so\ncalled_from_lib:libglib-2.0.so\ncalled_from_lib:libgobject-2.0.so\n"
         "called_from_lib:libgio-2.0.so\n";
}

namespace tarsil {
namespace {

std::string line(char kind, const std::string& name, const std::string& value) {
  return std::string(1, kind) + ": " + name + "=" + value + (kind == 'A' ? "\\n\n" : "\n");
}

std::string attributeUnlessEmpty(const std::string& name, const std::string& value) {
  return value.empty() ? "" : line('A', name, value);
}

// A minor number of the terminal's own.
std::string numberOf(const std::string& terminalName) {
  const auto start = terminalName.find_last_not_of("0123456789") + 1;
  return start == terminalName.size() ? "64" : terminalName.substr(start);
}

}  // namespace

Testbed::Testbed() : testbed_(umockdev_testbed_new()) {}

Testbed::~Testbed() {
  g_object_unref(testbed_);
}

void Testbed::add(const std::string& folder, const std::string& description) {
  if (std::filesystem::exists(root() / ("sys" + folder))) return;
  GError* error = nullptr;
  if (umockdev_testbed_add_from_string(testbed_, ("P: " + folder + "\n" + description).c_str(), &error))
    return;
  const std::string reason = error->message;
  g_error_free(error);
  throw std::runtime_error(reason + " in " + folder + "\n" + description);
}

std::string Testbed::plug(const Adapter& adapter) {
  const std::string device = "/devices/pci0000:00/usb1/" + adapter.socket;
  const std::string interface = device + "/" + adapter.socket + ":1.0";
  const std::string port = interface + "/" + adapter.terminalName;
  const std::string terminal = port + "/tty/" + adapter.terminalName;
  add(device, line('E', "DEVTYPE", "usb_device") + line('E', "SUBSYSTEM", "usb") +
                  line('A', "idVendor", adapter.vendorId) + line('A', "idProduct", adapter.productId) +
                  attributeUnlessEmpty("serial", adapter.serialNumber) +
                  attributeUnlessEmpty("manufacturer", adapter.manufacturer) +
                  attributeUnlessEmpty("product", adapter.product));
  add(interface, line('E', "DEVTYPE", "usb_interface") + line('E', "SUBSYSTEM", "usb"));
  add(port, line('E', "SUBSYSTEM", "usb-serial"));
  add(terminal, "N: " + adapter.terminalName + "\nL: device=../..\n" +
                    line('E', "DEVNAME", "/dev/" + adapter.terminalName) + line('E', "SUBSYSTEM", "tty") +
                    (adapter.links.empty() ? "" : line('E', "DEVLINKS", adapter.links)) +
                    line('A', "dev", "188:" + numberOf(adapter.terminalName)));
  return "/sys" + terminal;
}

std::string Testbed::addTerminal(const std::string& folder, const std::string& name,
                                 const std::string& uartType) {
  const std::string terminal = folder + "/tty/" + name;
  add(terminal, "N: " + name + "\n" + line('E', "DEVNAME", "/dev/" + name) + line('E', "SUBSYSTEM", "tty") +
                    attributeUnlessEmpty("type", uartType) + line('A', "dev", "4:" + numberOf(name)));
  return "/sys" + terminal;
}

std::string Testbed::addUart(const std::string& parent, const std::string& name,
                             const std::string& uartType) {
  const std::string device = "/devices/" + parent;
  add(device, line('E', "SUBSYSTEM", "platform"));
  return addTerminal(device, name, uartType);
}

void Testbed::unplug(const std::string& systemPath) {
  umockdev_testbed_remove_device(testbed_, systemPath.c_str());
}

void Testbed::announce(const std::string& systemPath, const std::string& action) {
  umockdev_testbed_uevent(testbed_, systemPath.c_str(), action.c_str());
}

std::filesystem::path Testbed::root() const {
  gchar* path = umockdev_testbed_get_root_dir(testbed_);
  const std::filesystem::path root = path;
  g_free(path);
  return root;
}

}  // namespace tarsil
