#include "hybase/hlog.h"
int32_t hlog_printf_ex(int32_t, const char*, const char*, int32_t, const char*, ...) { return 0; }
int32_t hlog_set_param(const hlogParam_t*) { return 0; }
void hlog_regirst(hlogCallback) {}
