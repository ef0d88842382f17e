// Reference counting of host objects and the smart pointer that holds them.
//
// Every host object derives from CRef and starts with a count of zero; the
// first _ptr_t that takes it raises the count to one. When the last _ptr_t
// lets go, Release deletes the object through its virtual destructor. Code
// outside the host library never calls AddRef/Release by hand.
#pragma once

#include "KalExport.h"

#include <atomic>
#include <utility>

namespace KalUtility {

class KAL_API CRef {
public:
    CRef() = default;
    CRef(const CRef&) : refCount_(0) {}
    CRef& operator=(const CRef&) { return *this; }
    virtual ~CRef();

    // Returns the count after the increment.
    long AddRef() const;
    // Returns the count after the decrement; deletes the object at zero.
    long Release() const;
    long RefCount() const { return refCount_.load(); }

private:
    mutable std::atomic<long> refCount_{0};
};

// Intrusive smart pointer: AddRef on construction from a raw pointer and on
// copy, takes over on move, Release on destruction and reset.
template <class T>
class _ptr_t {
public:
    _ptr_t() = default;
    _ptr_t(std::nullptr_t) {}
    _ptr_t(T* p) : p_(p) { if (p_) p_->AddRef(); }
    _ptr_t(const _ptr_t& o) : p_(o.p_) { if (p_) p_->AddRef(); }
    _ptr_t(_ptr_t&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
    template <class U>
    _ptr_t(const _ptr_t<U>& o) : p_(o.get()) { if (p_) p_->AddRef(); }
    ~_ptr_t() { reset(); }

    _ptr_t& operator=(_ptr_t o) noexcept { swap(o); return *this; }

    void reset() {
        T* p = p_;
        p_ = nullptr;
        if (p) p->Release();
    }
    void swap(_ptr_t& o) noexcept { std::swap(p_, o.p_); }

    T* get() const { return p_; }
    T* operator->() const { return p_; }
    T& operator*() const { return *p_; }
    explicit operator bool() const { return p_ != nullptr; }

private:
    T* p_ = nullptr;
};

template <class T, class U>
bool operator==(const _ptr_t<T>& a, const _ptr_t<U>& b) { return a.get() == b.get(); }
template <class T, class U>
bool operator!=(const _ptr_t<T>& a, const _ptr_t<U>& b) { return a.get() != b.get(); }

// Down-cast of a held object; null when the object is not a U.
template <class U, class T>
_ptr_t<U> dynamic_ptr_cast(const _ptr_t<T>& p) { return _ptr_t<U>(dynamic_cast<U*>(p.get())); }

} // namespace KalUtility
