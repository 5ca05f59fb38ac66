/*
 * Validator registry.
 *
 * The registry holds at most two validator groups (arrays of rmmi_validator_t ended by a
 * record whose at_name is null) and a hash table from a command name ("+cgdcont": the
 * prefix symbol as written, letters in lower case) to its record. The records stay in the
 * plug-ins' memory; the registry only points at them. Built by the main thread at start-up
 * by the plug-in loader, read afterwards by the request worker alone; no lock.
 */
#ifndef KERV_VALIDATOR_REGISTRY_H
#define KERV_VALIDATOR_REGISTRY_H

#include "kal_common.h"
#include "rmmi_common.h"

void init_validator_group(void);
/* Empties the registry: no group, no table. */
void reset_validators(void);
/* Takes the first free of the two slots; a null group, or a third group, is ignored. */
void set_validator_group(rmmi_validator_t *_validator_group);
/* (Re)builds the hash table from the registered groups; a later record wins a name. */
void init_validators(void);
kal_bool set_validator(char *name, rmmi_validator_t *data);
kal_bool get_validator(char *name, rmmi_validator_t **data);

#endif /* KERV_VALIDATOR_REGISTRY_H */
