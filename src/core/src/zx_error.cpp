// SPDX-License-Identifier: Apache-2.0
#include "zx_error.h"

#include <pthread.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "zx_heap.h"

namespace {

constexpr uint32_t MAX_FRAMES = 8;
constexpr size_t MESSAGE_SIZE = 256;
constexpr size_t NUM_STACKS = 128;

struct zx_error_frame {
    const char *file;
    uint32_t line;
    char message[MESSAGE_SIZE];
};

// Only the owner touches `is_prepared`, `depth` and `frames`. The owner alone is read by other threads while
// they look for their own record, hence atomic; release/acquire hands a returned record's cleared content to
// its next owner.
struct zx_error_stack_t {
    std::atomic<pthread_t> owner;
    bool is_prepared;
    uint32_t depth;
    zx_error_frame frames[MAX_FRAMES];
};

constinit zx_error_stack_t zx_error_stack[NUM_STACKS] = {};
#if !defined(_WIN32)  // where mutexes are made when the library is loaded
constinit
#endif
    std::mutex zx_error_mutex;               // guards the assignment of records and the transfer buffer
constinit char **transfer_buffer = nullptr;  // what the next zx_get_error_stack hands out

char **create_transfer_buffer() {
    std::unique_ptr<char *, zx_deleter<zx_free_error_stack>> buffer(zx_heap_zeroed<char *>(MAX_FRAMES));
    if (!buffer) return nullptr;
    for (uint32_t i = 0; i < MAX_FRAMES; i++) {
        buffer.get()[i] = zx_heap_zeroed<char>(MESSAGE_SIZE);
        if (!buffer.get()[i]) return nullptr;
    }
    return buffer.release();
}

zx_error_stack_t *find_stack() {
    const pthread_t self = pthread_self();
    for (zx_error_stack_t &stack : zx_error_stack) {
        const pthread_t owner = stack.owner.load(std::memory_order_acquire);
        if (owner && pthread_equal(owner, self)) return &stack;
    }
    return nullptr;
}

zx_error_stack_t *acquire_stack() {
    if (zx_error_stack_t *stack = find_stack()) return stack;
    const std::lock_guard<std::mutex> lock(zx_error_mutex);
    for (zx_error_stack_t &stack : zx_error_stack) {
        if (!stack.owner.load(std::memory_order_acquire)) {
            stack.owner.store(pthread_self(), std::memory_order_release);
            return &stack;
        }
    }
    return nullptr;
}

void clear_frames(zx_error_stack_t *stack) {
    stack->is_prepared = false;
    stack->depth = 0;
    std::memset(stack->frames, 0, sizeof(stack->frames));
}

void *printable(pthread_t thread) {
    return reinterpret_cast<void *>(thread);
}

std::atomic<bool> prints_notices = true;

[[gnu::format(printf, 1, 2)]] void print_notice(const char *format, ...) {
    if (!prints_notices.load(std::memory_order_relaxed)) return;
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}

}  // namespace

void zx_error_prepare() {
    {
        const std::lock_guard<std::mutex> lock(zx_error_mutex);
        if (!transfer_buffer) transfer_buffer = create_transfer_buffer();
    }
    if (zx_error_stack_t *stack = find_stack()) stack->is_prepared = true;
}

void zx_error_log_error_va(const char *file, uint32_t line, const zx_error_msg_t *msg, va_list arguments) {
    zx_error_stack_t *stack = acquire_stack();
    if (!stack) {
        print_notice("(zx_error) Unable to acquire stack for `%p`\n", printable(pthread_self()));
        return;
    }
    if (stack->is_prepared) clear_frames(stack);
    if (stack->depth == MAX_FRAMES) return;

    zx_error_frame *frame = &stack->frames[stack->depth];
    frame->file = file;
    frame->line = line;
    const char *text = msg->internal_text ? msg->internal_text : msg->public_text;
    if (text) {
        std::vsnprintf(frame->message, MESSAGE_SIZE, text, arguments);
    } else {
        std::snprintf(frame->message, MESSAGE_SIZE, "Orlenta Error (code `%08X`)", msg->code);
    }
    print_notice("(zx_error) (%p frame %u) %s\n", printable(stack->owner.load(std::memory_order_relaxed)),
                 stack->depth, frame->message);
    stack->depth++;
}

void zx_error_log_error(const char *file, uint32_t line, const zx_error_msg_t *msg, ...) {
    va_list arguments;
    va_start(arguments, msg);
    zx_error_log_error_va(file, line, msg, arguments);
    va_end(arguments);
}

extern "C" zx_status_t zx_get_error_stack(char ***message_stack, int32_t *message_stack_depth) {
    if (!message_stack || !message_stack_depth) return ZX_STATUS_INVALID_ARGUMENT;
    *message_stack = nullptr;
    *message_stack_depth = 0;
    zx_error_stack_t *stack = find_stack();
    if (!stack) {
        print_notice("(zx_error) Unable to find error stack for `%p`\n", printable(pthread_self()));
        return ZX_STATUS_INVALID_STATE;
    }

    const std::lock_guard<std::mutex> lock(zx_error_mutex);
    if (!transfer_buffer) {
        print_notice("(zx_error) Error buffer is unavailable\n");
        return ZX_STATUS_INVALID_STATE;
    }
    for (uint32_t i = 0; i < MAX_FRAMES; i++) {
        std::memset(transfer_buffer[i], 0, MESSAGE_SIZE);
        if (i < stack->depth) std::memcpy(transfer_buffer[i], stack->frames[i].message, MESSAGE_SIZE - 1);
    }
    *message_stack = transfer_buffer;
    *message_stack_depth = static_cast<int32_t>(stack->depth);

    clear_frames(stack);
    stack->owner.store(pthread_t{}, std::memory_order_release);

    transfer_buffer = create_transfer_buffer();
    if (!transfer_buffer) {
        print_notice("(zx_error) Unable to obtain new error buffer\n");
        return ZX_STATUS_OUT_OF_MEMORY;
    }
    return ZX_STATUS_SUCCESS;
}

extern "C" void zx_free_error_stack(char **message_stack) {
    if (!message_stack) return;
    for (uint32_t i = 0; i < MAX_FRAMES; i++) std::free(message_stack[i]);
    std::free(message_stack);
}

void zx_error_print_notices(bool on) {
    prints_notices.store(on, std::memory_order_relaxed);
}
