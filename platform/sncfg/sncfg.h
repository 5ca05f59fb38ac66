/*
 * The board's configuration store. Returns a negative value when the key cannot be
 * read; otherwise *value is null (key present without a value) or a heap string that
 * the caller releases with free().
 */
#ifndef SNCFG_H
#define SNCFG_H

#ifdef __cplusplus
extern "C" {
#endif

int sncfg_get(const char *key, char **value);

#ifdef __cplusplus
}
#endif

#endif /* SNCFG_H */
