// Container-free iteration over sequences that cross the library boundary.
#ifndef KORVANE_GENERIC_ITERATOR_H
#define KORVANE_GENERIC_ITERATOR_H

#include <korvane/export.h>

#include <cstdint>

namespace TOBREK_2_18 {
namespace debug {
namespace _private {
// Reports a failed assertion and returns to the caller.
KORVANE_API void ____________________ASSERT____________________(const char* condition, const char* file,
                                                                unsigned line, const char* function);
} // namespace _private
} // namespace debug
} // namespace TOBREK_2_18

namespace skeinkit2 {

typedef std::uint64_t caps_t;

// Optional capabilities a handler may offer beside the plain forward walk.
enum iterator_caps_t : caps_t { capReset = 1, capPrev = 2 };

template <class T>
class iterator_handler_t {
public:
    virtual bool at_end() const = 0;
    virtual T current() const = 0;
    virtual void next() = 0;
    virtual iterator_handler_t* clone() const = 0;
    virtual bool reset() { return false; }
    virtual void destroy() = 0;
    virtual caps_t supported_caps() const { return 0; }
    virtual void prev() {}
    virtual ~iterator_handler_t() {}
};

template <class T, class Derived>
class iterator_impl_base_t : public iterator_handler_t<T> {
public:
    iterator_handler_t<T>* clone() const override { return new Derived(static_cast<const Derived&>(*this)); }
    void destroy() override { delete this; }
};

namespace iterutil {

template <class T>
struct identity_t {
    T operator()(const T& value) const { return value; }
};

template <class T, class Iter, class Conv, class Derived>
class stl_iterator_impl_base_t : public iterator_impl_base_t<T, Derived> {
public:
    stl_iterator_impl_base_t(Iter begin, Iter end, Conv conv = Conv())
        : m_current(begin), m_begin(begin), m_end(end), m_conv(conv) {}

    bool at_end() const override { return m_current == m_end; }
    T current() const override { return m_conv(*m_current); }
    // A walk past either end starts over from the other one.
    void next() override {
        if (m_current == m_end)
            m_current = m_begin;
        else
            ++m_current;
    }
    void prev() override {
        if (m_current == m_begin)
            m_current = m_end;
        else
            --m_current;
    }
    bool reset() override {
        m_current = m_begin;
        return true;
    }
    caps_t supported_caps() const override { return capReset | capPrev; }

protected:
    Iter m_current;
    Iter m_begin;
    Iter m_end;
    Conv m_conv;
};

template <class T, class Iter, class Conv = identity_t<T> >
class stl_iterator_impl_t : public stl_iterator_impl_base_t<T, Iter, Conv, stl_iterator_impl_t<T, Iter, Conv> > {
public:
    stl_iterator_impl_t(Iter begin, Iter end, Conv conv = Conv())
        : stl_iterator_impl_base_t<T, Iter, Conv, stl_iterator_impl_t<T, Iter, Conv> >(begin, end, conv) {}
};

} // namespace iterutil

// The value a caller holds: owns one handler, which may be null.
template <class T>
class generic_iterator_t {
public:
    typedef iterator_handler_t<T> handler_t;

    // Converts the elements of a source handler to T; owns that handler.
    template <class S>
    class converting_iterator_impl_t : public iterator_impl_base_t<T, converting_iterator_impl_t<S> > {
    public:
        explicit converting_iterator_impl_t(iterator_handler_t<S>* adopted) : m_source(adopted) {}
        converting_iterator_impl_t(const converting_iterator_impl_t& other)
            : m_source(other.m_source ? other.m_source->clone() : nullptr) {}
        converting_iterator_impl_t& operator=(const converting_iterator_impl_t&) = delete;
        ~converting_iterator_impl_t() override {
            if (m_source)
                m_source->destroy();
        }

        bool at_end() const override { return !m_source || m_source->at_end(); }
        T current() const override { return m_source ? T(m_source->current()) : T(); }
        void next() override {
            if (m_source)
                m_source->next();
        }
        void prev() override {
            if (m_source)
                m_source->prev();
        }
        bool reset() override { return m_source && m_source->reset(); }
        caps_t supported_caps() const override { return m_source ? m_source->supported_caps() : 0; }
        iterator_handler_t<T>* clone() const override {
            return m_source ? new converting_iterator_impl_t(m_source->clone()) : nullptr;
        }

    private:
        iterator_handler_t<S>* m_source;
    };

    generic_iterator_t() : m_handler(nullptr) {}
    explicit generic_iterator_t(const handler_t& handler) : m_handler(handler.clone()) {}
    generic_iterator_t(const generic_iterator_t& other)
        : m_handler(other.m_handler ? other.m_handler->clone() : nullptr) {}
    generic_iterator_t& operator=(const generic_iterator_t& other) {
        if (this != &other) {
            handler_t* copy = other.m_handler ? other.m_handler->clone() : nullptr;
            release();
            m_handler = copy;
        }
        return *this;
    }
    ~generic_iterator_t() { release(); }

    // Takes ownership of a handler made on the heap, without cloning it.
    static generic_iterator_t adopt(handler_t* handler) {
        generic_iterator_t result;
        result.m_handler = handler;
        return result;
    }

    bool at_end() const { return !m_handler || m_handler->at_end(); }
    T current() const {
        if (at_end()) {
            TOBREK_2_18::debug::_private::____________________ASSERT____________________(
                "!at_end() && \"iterator is at end state\"", __FILE__, __LINE__, __PRETTY_FUNCTION__);
            return T();
        }
        return m_handler->current();
    }
    void next() {
        if (m_handler)
            m_handler->next();
    }
    void prev() {
        if (m_handler)
            m_handler->prev();
    }
    bool reset() { return m_handler && m_handler->reset(); }
    virtual bool supports(caps_t caps) const { return m_handler && (m_handler->supported_caps() & caps) == caps; }

    const handler_t* handler() const { return m_handler; }

private:
    void release() {
        if (m_handler)
            m_handler->destroy();
        m_handler = nullptr;
    }

    handler_t* m_handler;
};

} // namespace skeinkit2

#endif
