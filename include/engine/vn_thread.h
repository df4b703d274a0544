/// @file vn_thread.h
/// Engine threads: only the opaque thread identity is visible to callers.
#ifndef VN_THREAD_H
#define VN_THREAD_H

/// Opaque identity of an engine thread.
typedef void *VN_THREAD_ID;

#endif
