#include <mach/mach.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <cerrno>

#include "osal/osal_host.h"

namespace {

/// This process's task port, given back at the end.
class OwnTask {
 public:
  OwnTask() : error_(::task_for_pid(mach_task_self(), ::getpid(), &port_)) {}
  OwnTask(const OwnTask&) = delete;
  OwnTask& operator=(const OwnTask&) = delete;
  ~OwnTask() {
    if (error_ == KERN_SUCCESS) ::mach_port_deallocate(mach_task_self(), port_);
  }
  [[nodiscard]] explicit operator bool() const { return error_ == KERN_SUCCESS; }
  [[nodiscard]] mach_port_t port() const { return port_; }

 private:
  mach_port_t port_ = MACH_PORT_NULL;
  kern_return_t error_;
};

/// The system's shared-library area.
bool isSharedLibraryAddress(vm_address_t address) {
  return address >= 0x90000000 && address <= 0xAFFFFFFF;
}

/// One query of the region at or behind `address`, which becomes the region's own.
template <typename Info>
bool queryRegion(mach_port_t task, vm_region_flavor_t flavor, vm_address_t& address,
                 vm_size_t& size, Info& info) {
  mach_msg_type_number_t count = sizeof info / sizeof(natural_t);
  mach_port_t object = MACH_PORT_NULL;
  const kern_return_t error = ::vm_region_64(
      task, &address, &size, flavor, reinterpret_cast<vm_region_info_t>(&info), &count, &object);
  if (error == KERN_SUCCESS && object != MACH_PORT_NULL) {
    ::mach_port_deallocate(mach_task_self(), object);
  }
  return error == KERN_SUCCESS;
}

HostShareMode toShareMode(unsigned char mode) {
  switch (mode) {
    case SM_PRIVATE:
      return HostShareMode::Private;
    case SM_COW:
      return HostShareMode::CopyOnWrite;
    default:
      return HostShareMode::Other;
  }
}

}  // namespace

int host_memoryRegions(std::vector<HostMemoryRegion>& regions) {
  const OwnTask task;
  if (!task) return EPERM;
  std::vector<HostMemoryRegion> found;
  vm_address_t address = 0;
  vm_size_t size = 0;
  vm_region_top_info_data_t top{};
  while (queryRegion(task.port(), VM_REGION_TOP_INFO, address, size, top)) {
    if (isSharedLibraryAddress(address) && top.share_mode == SM_EMPTY) {
      vm_region_basic_info_data_64_t basic{};
      if (!queryRegion(task.port(), VM_REGION_BASIC_INFO_64, address, size, basic)) break;
    }
    found.push_back({size, toShareMode(top.share_mode), top.ref_count, top.private_pages_resident});
    if (address + size <= address) break;  // the region ends where addresses end
    address += size;
  }
  regions = std::move(found);
  return 0;
}

int host_residentSize(std::uint64_t& bytes) {
  const OwnTask task;
  if (!task) return EPERM;
  mach_task_basic_info_data_t info{};
  mach_msg_type_number_t count = MACH_TASK_BASIC_INFO_COUNT;
  if (::task_info(task.port(), MACH_TASK_BASIC_INFO, reinterpret_cast<task_info_t>(&info),
                  &count) != KERN_SUCCESS) {
    return EPERM;
  }
  bytes = info.resident_size;
  return 0;
}

int host_physicalMemory(std::uint64_t& bytes) {
  int name[] = {CTL_HW, HW_MEMSIZE};
  std::uint64_t size = 0;
  std::size_t length = sizeof size;
  if (::sysctl(name, 2, &size, &length, nullptr, 0) != 0) return errno;
  bytes = size;
  return 0;
}
