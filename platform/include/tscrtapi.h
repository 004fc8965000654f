/* How the headers that add the Microsoft C runtime's calls declare them:
 * exported from the platform library, with C linkage. */
#ifndef TSPLATFORM_TSCRTAPI_H
#define TSPLATFORM_TSCRTAPI_H

#define TSCRT_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define TSCRT_BEGIN_DECLS extern "C" {
#define TSCRT_END_DECLS }
#else
#define TSCRT_BEGIN_DECLS
#define TSCRT_END_DECLS
#endif

#endif /* TSPLATFORM_TSCRTAPI_H */
