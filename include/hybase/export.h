/* What libhybase.so shows to its users: everything marked HYBASE_API, and nothing else. */
#ifndef HYBASE_EXPORT_H
#define HYBASE_EXPORT_H

#define HYBASE_API __attribute__((visibility("default")))

#endif
