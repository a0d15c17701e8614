#pragma once

/// Base of every interface class. It has no state; the virtual destructor lets an owner destroy an
/// implementation through its interface.
class qd_interface_base_qualifier {
 public:
  virtual ~qd_interface_base_qualifier() = default;

 protected:
  qd_interface_base_qualifier() = default;
  qd_interface_base_qualifier(const qd_interface_base_qualifier&) = default;
  qd_interface_base_qualifier& operator=(const qd_interface_base_qualifier&) = default;
};

/// Base of classes that can be neither copied nor moved.
class qd_no_duplic {
 public:
  qd_no_duplic(const qd_no_duplic&) = delete;
  qd_no_duplic& operator=(const qd_no_duplic&) = delete;

 protected:
  qd_no_duplic() = default;
  ~qd_no_duplic() = default;
};
