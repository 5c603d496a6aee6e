/**
 * @file
 * What libhybase.so shows to its users: everything marked HYBASE_API, and nothing else.
 */
#ifndef HYBASE_EXPORT_H
#define HYBASE_EXPORT_H

/** Marks a function or a class as part of the interface of libhybase.so. */
#define HYBASE_API __attribute__((visibility("default")))

#endif
