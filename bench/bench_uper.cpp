// UPER decoding and encoding of one message per type.
//
//   uper_decode/<MSG>/control  ASN1PERDecodeBuffer + ASN1X_<MSG>::Decode, everything built per
//                              message (as the conversion functions do)
//   uper_decode/<MSG>/raw      asn1PD_<MSG> on one reused context; its heap is reset after each
//                              message, so this is the codec alone
//   uper_encode/<MSG>/control  ASN1PEREncodeBuffer + ASN1X_<MSG>::EncodeTo, built per message
//   uper_encode/<MSG>/raw      asn1PE_<MSG> on one reused context and buffer
//
// Bytes processed are the UPER bytes of the message.

#include <benchmark/benchmark.h>

#include <string>

#include "bench/bench_data.h"
#include "rtpersrc/asn1PerCppTypes.h"
#include "rtpersrc/asn1per.h"
#include "rtxsrc/rtxContext.h"
#include "rtxsrc/rtxMemory.h"
#include "src/etsi/CAM-PDU-Descriptions.h"
#include "src/etsi/DENM-PDU-Descriptions.h"
#include "src/etsi/IVIM-PDU-Descriptions.h"
#include "src/etsi/MAPEM-PDU-Descriptions.h"
#include "src/etsi/SPATEM-PDU-Descriptions.h"
#include "src/etsi/SREM-PDU-Descriptions.h"
#include "src/etsi/SSEM-PDU-Descriptions.h"

namespace {

using etsibench::Input;
using etsibench::uperInput;

// A context owned by the benchmark (the raw codecs take a bare QSCTXT).
struct Context {
   QSCTXT c;
   int status;
   Context() { status = rtxInitContext(&c); }
   ~Context()
   {
      if (status == 0) rtxFreeContext(&c);
   }
};

bool haveInput(benchmark::State& state, const Input& in)
{
   if (!in.uper.empty()) return true;
   state.SkipWithError(("cannot read " + in.source).c_str());
   return false;
}

void account(benchmark::State& state, size_t bytesPerMessage)
{
   state.SetItemsProcessed(state.iterations());
   state.SetBytesProcessed(state.iterations() * (int64_t)bytesPerMessage);
}

template <class T, class X>
void decodeControl(benchmark::State& state, const char* msg)
{
   const Input& in = uperInput(msg);
   if (!haveInput(state, in)) return;
   for (auto _ : state) {
      ASN1PERDecodeBuffer buf((const QSOCTET*)in.uper.data(), in.uper.size(), 0);
      T value;
      X control(buf, value);
      int stat = control.Decode(0);
      if (stat != 0) {
         state.SkipWithError("decode failed");
         return;
      }
      benchmark::DoNotOptimize(value);
   }
   account(state, in.uper.size());
}

template <class T, int (*PD)(QSCTXT*, T*)>
void decodeRaw(benchmark::State& state, const char* msg)
{
   const Input& in = uperInput(msg);
   if (!haveInput(state, in)) return;
   Context ctx;
   if (ctx.status != 0) {
      state.SkipWithError("rtxInitContext failed");
      return;
   }
   for (auto _ : state) {
      pu_setBuffer(&ctx.c, (QSOCTET*)in.uper.data(), in.uper.size(), 0);
      T value;
      int stat = PD(&ctx.c, &value);
      if (stat != 0) {
         state.SkipWithError("decode failed");
         return;
      }
      benchmark::DoNotOptimize(value);
      rtxMemHeapReset(&ctx.c);
   }
   account(state, in.uper.size());
}

template <class T, class X>
void encodeControl(benchmark::State& state, const char* msg)
{
   const Input& in = uperInput(msg);
   if (!haveInput(state, in)) return;
   // The value is decoded once and stays in the decode buffer's context.
   ASN1PERDecodeBuffer dec((const QSOCTET*)in.uper.data(), in.uper.size(), 0);
   T value;
   X decoder(dec, value);
   if (decoder.Decode(0) != 0) {
      state.SkipWithError("decode failed");
      return;
   }
   for (auto _ : state) {
      ASN1PEREncodeBuffer enc(0);
      X control(value);
      int stat = control.EncodeTo(enc);
      if (stat != 0 || enc.getMsgLen() != in.uper.size()) {
         state.SkipWithError("encode failed or gave another length");
         return;
      }
      benchmark::DoNotOptimize(enc.getMsgPtr());
   }
   account(state, in.uper.size());
}

template <class T, int (*PD)(QSCTXT*, T*), int (*PE)(QSCTXT*, T*)>
void encodeRaw(benchmark::State& state, const char* msg)
{
   const Input& in = uperInput(msg);
   if (!haveInput(state, in)) return;
   Context dec;
   Context enc;
   if (dec.status != 0 || enc.status != 0) {
      state.SkipWithError("rtxInitContext failed");
      return;
   }
   pu_setBuffer(&dec.c, (QSOCTET*)in.uper.data(), in.uper.size(), 0);
   T value;
   if (PD(&dec.c, &value) != 0) {
      state.SkipWithError("decode failed");
      return;
   }
   if (pu_setBuffer(&enc.c, nullptr, 0, 0) != 0) {
      state.SkipWithError("pu_setBuffer failed");
      return;
   }
   for (auto _ : state) {
      pe_resetBuffer(&enc.c);
      int stat = PE(&enc.c, &value);
      if (stat != 0 || (size_t)pu_getMsgLen(&enc.c) != in.uper.size()) {
         state.SkipWithError("encode failed or gave another length");
         return;
      }
      benchmark::DoNotOptimize(enc.c.buffer.data);
   }
   account(state, in.uper.size());
}

template <class T, class X, int (*PD)(QSCTXT*, T*), int (*PE)(QSCTXT*, T*)>
void registerMessage(const char* msg)
{
   std::string m(msg);
   benchmark::RegisterBenchmark(("uper_decode/" + m + "/control").c_str(), decodeControl<T, X>, msg);
   benchmark::RegisterBenchmark(("uper_decode/" + m + "/raw").c_str(), decodeRaw<T, PD>, msg);
   benchmark::RegisterBenchmark(("uper_encode/" + m + "/control").c_str(), encodeControl<T, X>, msg);
   benchmark::RegisterBenchmark(("uper_encode/" + m + "/raw").c_str(), encodeRaw<T, PD, PE>, msg);
}

[[maybe_unused]] const bool registered = [] {
   registerMessage<ASN1T_CAM, ASN1X_CAM, asn1PD_CAM, asn1PE_CAM>("CAM");
   registerMessage<ASN1T_DENM, ASN1X_DENM, asn1PD_DENM, asn1PE_DENM>("DENM");
   registerMessage<ASN1T_SPATEM, ASN1X_SPATEM, asn1PD_SPATEM, asn1PE_SPATEM>("SPATEM");
   registerMessage<ASN1T_MAPEM, ASN1X_MAPEM, asn1PD_MAPEM, asn1PE_MAPEM>("MAPEM");
   registerMessage<ASN1T_IVIM, ASN1X_IVIM, asn1PD_IVIM, asn1PE_IVIM>("IVIM");
   registerMessage<ASN1T_SREM, ASN1X_SREM, asn1PD_SREM, asn1PE_SREM>("SREM");
   registerMessage<ASN1T_SSEM, ASN1X_SSEM, asn1PD_SSEM, asn1PE_SSEM>("SSEM");
   return true;
}();

}  // namespace
