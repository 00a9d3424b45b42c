// Display lists given up by the preprocess: the list of a strip header that is
// dropped belongs to the GL context of the draw, which only the main thread
// holds. With two Scene Contexts the preprocess runs on the update thread,
// where a delete would reach no context and the list would stay for ever; so
// every drop hands its list here, and the draw deletes them at its next pass.
#include <GL/gl.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "graphic.h"

namespace {

std::mutex retiredLock;
std::vector<GLuint> retired;           // lists waiting for the draw, under retiredLock
std::atomic<bool> anyRetired{false};   // the draw's look without the lock

}  // namespace

void grListRetire(int32_t list) {
    if (list <= 0) return;
    std::lock_guard<std::mutex> hold(retiredLock);
    retired.push_back(static_cast<GLuint>(list));
    anyRetired.store(true, std::memory_order_release);
}

int grListsReap() {
    if (!anyRetired.load(std::memory_order_acquire)) return 0;
    std::vector<GLuint> lists;
    {
        std::lock_guard<std::mutex> hold(retiredLock);
        lists.swap(retired);
        anyRetired.store(false, std::memory_order_relaxed);
    }
    for (GLuint list : lists) glDeleteLists(list, 1);
    return static_cast<int>(lists.size());
}
