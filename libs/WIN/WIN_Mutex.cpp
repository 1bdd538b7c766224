#include "WIN/WIN_Mutex.hpp"

#include <pthread.h>

namespace win {
namespace {

/// The lines are stable identifiers that support knows.
constexpr const char* gcFile = "../WIN/WIN_Mutex.hpp";
constexpr unsigned short gcLineInitAttributes = 51;
constexpr unsigned short gcLineSetType = 57;
constexpr unsigned short gcLineInitMutex = 63;

struct Attributes_t {
    Attributes_t() {
        if (pthread_mutexattr_init(&value) != 0) throw Error_t(gcFile, gcLineInitAttributes);
    }
    ~Attributes_t() { pthread_mutexattr_destroy(&value); }
    Attributes_t(const Attributes_t&) = delete;
    Attributes_t& operator=(const Attributes_t&) = delete;

    pthread_mutexattr_t value;
};

}  // namespace

Mutex_t::Mutex_t() {
    Attributes_t attributes;
    if (pthread_mutexattr_settype(&attributes.value, PTHREAD_MUTEX_RECURSIVE) != 0)
        throw Error_t(gcFile, gcLineSetType);
    if (pthread_mutex_init(&mMutex, &attributes.value) != 0) throw Error_t(gcFile, gcLineInitMutex);
}

Mutex_t::~Mutex_t() {
    pthread_mutex_destroy(&mMutex);
}

int Mutex_t::Lock() noexcept {
    return pthread_mutex_lock(&mMutex);
}

int Mutex_t::Unlock() noexcept {
    return pthread_mutex_unlock(&mMutex);
}

}  // namespace win
