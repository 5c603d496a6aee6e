// What the library prints to standard output, the logger's own records excepted, goes through here.
#ifndef HYBASE_PRINT_H
#define HYBASE_PRINT_H

// Prints as printf does, by the function of hlog_set_print(). Leaves errno alone.
void Print(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif
