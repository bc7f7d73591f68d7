/*
 * etsi_v2x: conversion of C-ITS messages (CAM, DENM, SPATEM, MAPEM, IVIM,
 * SREM, SSEM) between unaligned PER and two text forms, JSON and XML.
 *
 * to_json, to_xml:     PER bytes (data, len) -> NUL-terminated text in *out.
 * from_json, from_xml: NUL-terminated text -> PER bytes in *out, their count in *outLen.
 *
 * Every function returns 0 on success or a negative status. On failure *out
 * stays null and *err receives the full error report (it begins with
 * "ERROR: Status "). Release *out and *err with etsi_delete_array. With
 * trace set, the PER side is traced and dumped on standard output.
 * Calls keep no state between them and may run on several threads at once.
 */
#ifndef ETSI_V2X_H
#define ETSI_V2X_H

#include <stddef.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define ETSI_V2X_CONVERSIONS(M)                                                                       \
   int etsi_##M##_to_json(const char* data, size_t len, char** out, char** err, bool trace);           \
   int etsi_##M##_from_json(const char* text, char** out, size_t* outLen, char** err, bool trace);    \
   int etsi_##M##_to_xml(const char* data, size_t len, char** out, char** err, bool trace);            \
   int etsi_##M##_from_xml(const char* text, char** out, size_t* outLen, char** err, bool trace);

ETSI_V2X_CONVERSIONS(CAM)
ETSI_V2X_CONVERSIONS(DENM)
ETSI_V2X_CONVERSIONS(SPATEM)
ETSI_V2X_CONVERSIONS(MAPEM)
ETSI_V2X_CONVERSIONS(IVIM)
ETSI_V2X_CONVERSIONS(SREM)
ETSI_V2X_CONVERSIONS(SSEM)

#undef ETSI_V2X_CONVERSIONS

/* Releases a result of the functions above; null is harmless. */
void etsi_delete_array(char* p);

#ifdef __cplusplus
}
#endif

#endif
