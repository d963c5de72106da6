// SPDX-License-Identifier: Apache-2.0
// Owners of Cyclone DDS handles (entities, QoS, listeners) and the result type every Cyclone
// return code becomes at this transport's boundary.
#ifndef KELP_DRIVER_DDS_DDS_ENTITY_H
#define KELP_DRIVER_DDS_DDS_ENTITY_H

#include <dds/dds.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

namespace kelp::driver::dds {

/// A Cyclone return code: success, or the negative code and its name.
class DdsStatus {
public:
    explicit DdsStatus(dds_return_t code) noexcept : code_(code < 0 ? code : DDS_RETCODE_OK) {}
    bool Ok() const noexcept { return code_ == DDS_RETCODE_OK; }
    dds_return_t Code() const noexcept { return code_; }
    /// "code=-3 (Timeout)": for the log.
    std::string Text() const { return "code=" + std::to_string(code_) + " (" + dds_strretcode(code_) + ")"; }

private:
    dds_return_t code_;
};

/// Deletes its entity (and every child of it) when destroyed. dds_delete waits for the
/// entity's listener calls in flight, so an entity must never be reset from inside its own listener.
class Entity {
public:
    Entity() = default;
    /// Takes a handle returned by a dds_create_* call; a negative value leaves it empty with that status.
    explicit Entity(dds_entity_t created) noexcept : handle_(created > 0 ? created : 0), status_(created) {}
    Entity(Entity&& other) noexcept : handle_(std::exchange(other.handle_, 0)), status_(other.status_) {}
    Entity& operator=(Entity&& other) noexcept {
        if (this != &other) {
            Reset();
            handle_ = std::exchange(other.handle_, 0);
            status_ = other.status_;
        }
        return *this;
    }
    Entity(const Entity&) = delete;
    Entity& operator=(const Entity&) = delete;
    ~Entity() { Reset(); }

    bool Valid() const noexcept { return handle_ > 0; }
    dds_entity_t Get() const noexcept { return handle_; }
    /// Outcome of the create call.
    const DdsStatus& Status() const noexcept { return status_; }
    void Reset() noexcept {
        if (handle_ > 0) {
            (void)dds_delete(std::exchange(handle_, 0));
        }
    }

private:
    dds_entity_t handle_{0};
    DdsStatus status_{DDS_RETCODE_OK};
};

class Qos {
public:
    Qos() : qos_(dds_create_qos()) {}
    Qos(const Qos&) = delete;
    Qos& operator=(const Qos&) = delete;
    ~Qos() { dds_delete_qos(qos_); }
    dds_qos_t* Get() const noexcept { return qos_; }

private:
    dds_qos_t* qos_;
};

/// Base of every object a listener is given as its argument. Cyclone hands that argument to
/// its own threads, and waits for running listener calls in dds_delete, through locks that
/// ThreadSanitizer cannot see (the library is not instrumented). So the hand-offs are made
/// visible with atomics of our own: the object is published with a release store when its
/// listener is made, a listener call holds it through From() (an acquire when it starts, a
/// release when it ends), and the owner calls ListenersDone() once the entities are deleted.
class ListenerTarget {
public:
    /// One listener call's hold on its target.
    template <typename T>
    class Call {
    public:
        explicit Call(void* arg) noexcept : target_(static_cast<T*>(arg)) {
            (void)Base().published_.load(std::memory_order_acquire);
        }
        ~Call() { (void)Base().calls_.fetch_add(1U, std::memory_order_release); }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        T* operator->() const noexcept { return target_; }
        T* get() const noexcept { return target_; }

    private:
        const ListenerTarget& Base() const noexcept { return *target_; }
        T* target_;
    };

    template <typename T>
    static Call<T> From(void* arg) noexcept {
        return Call<T>(arg);
    }
    /// After the entities whose listeners reach this object are deleted.
    void ListenersDone() const noexcept { (void)calls_.load(std::memory_order_acquire); }

private:
    friend class Listener;
    std::atomic<bool> published_{false};
    mutable std::atomic<std::uint32_t> calls_{0U};
};

class Listener {
public:
    explicit Listener(ListenerTarget* arg) : listener_(dds_create_listener(Publish(arg))) {}
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() { dds_delete_listener(listener_); }
    dds_listener_t* Get() const noexcept { return listener_; }

private:
    static void* Publish(ListenerTarget* target) noexcept {
        target->published_.store(true, std::memory_order_release);
        return target;
    }
    dds_listener_t* listener_;
};

}  // namespace kelp::driver::dds

#endif
