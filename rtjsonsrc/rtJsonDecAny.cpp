/*
 * Generic JSON value recogniser: a table-driven push-down automaton that
 * checks one complete JSON value of any kind and returns its exact text.
 * Used for unknown members, unknown extensions and open types.
 */
#include "rtjsonsrc/rtJson.h"

#include <cstring>

#include "rtjsonsrc/rtJsonInternal.h"
#include "rtxsrc/rtxMemory.h"
#include "rtxsrc/rtxPrintStream.h"

#define JSON_MODULE "../../rtjsonsrc/rtJsonDecAny.cpp"

using namespace jsonimpl;

namespace {

/* ---- character classes ------------------------------------------------------------------------ */

enum CharClass {
   C_SPACE,   /* 0x09..0x0D, 0x20 */
   C_LCURB,   /* { */
   C_RCURB,   /* } */
   C_LSQRB,   /* [ */
   C_RSQRB,   /* ] */
   C_COLON,   /* : */
   C_COMMA,   /* , */
   C_QUOTE,   /* " */
   C_BACKS,   /* \ */
   C_SLASH,   /* / */
   C_PLUS,    /* + */
   C_MINUS,   /* - */
   C_POINT,   /* . */
   C_ZERO,    /* 0 */
   C_DIGIT,   /* 1..9 */
   C_LOW_A,   /* a */
   C_LOW_B,   /* b */
   C_LOW_E,   /* e */
   C_LOW_F,   /* f */
   C_LOW_L,   /* l */
   C_LOW_N,   /* n */
   C_LOW_R,   /* r */
   C_LOW_S,   /* s */
   C_LOW_T,   /* t */
   C_LOW_U,   /* u */
   C_HEXLT,   /* other hex letters: A B C D F c d */
   C_UPP_E,   /* E */
   C_ETC,     /* any other printable ASCII character */
   C_CTRL,    /* other control characters */
   C_NUL,     /* the byte 0 */
   C_HIGH,    /* bytes 0x80 and above (UTF-8 sequences) */
   NR_CLASSES
};

struct ClassTable {
   QSOCTET cls[128];
   constexpr ClassTable() : cls()
   {
      for (int i = 0; i < 128; i++) cls[i] = (i < 0x20) ? C_CTRL : C_ETC;
      cls[0] = C_NUL;
      for (int i = 0x09; i <= 0x0D; i++) cls[i] = C_SPACE;
      cls[' '] = C_SPACE;
      cls['{'] = C_LCURB;  cls['}'] = C_RCURB;
      cls['['] = C_LSQRB;  cls[']'] = C_RSQRB;
      cls[':'] = C_COLON;  cls[','] = C_COMMA;
      cls['"'] = C_QUOTE;  cls['\\'] = C_BACKS;  cls['/'] = C_SLASH;
      cls['+'] = C_PLUS;   cls['-'] = C_MINUS;   cls['.'] = C_POINT;
      cls['0'] = C_ZERO;
      for (int i = '1'; i <= '9'; i++) cls[i] = C_DIGIT;
      cls['a'] = C_LOW_A;  cls['b'] = C_LOW_B;  cls['e'] = C_LOW_E;
      cls['f'] = C_LOW_F;  cls['l'] = C_LOW_L;  cls['n'] = C_LOW_N;
      cls['r'] = C_LOW_R;  cls['s'] = C_LOW_S;  cls['t'] = C_LOW_T;
      cls['u'] = C_LOW_U;
      cls['A'] = C_HEXLT;  cls['B'] = C_HEXLT;  cls['C'] = C_HEXLT;
      cls['D'] = C_HEXLT;  cls['F'] = C_HEXLT;  cls['c'] = C_HEXLT;
      cls['d'] = C_HEXLT;  cls['E'] = C_UPP_E;
   }
};
constexpr ClassTable ascii_class;

/* Value of a hex digit (0 for other characters, which never reach it). */
inline unsigned hexValueOf(QSOCTET c)
{
   if (c >= '0' && c <= '9') return (unsigned)(c - '0');
   if (c >= 'a' && c <= 'f') return (unsigned)(c - 'a' + 10);
   if (c >= 'A' && c <= 'F') return (unsigned)(c - 'A' + 10);
   return 0;
}

inline int classOf(QSOCTET c)
{
   return (c < 128) ? (int)ascii_class.cls[c] : (int)C_HIGH;
}

/* ---- states ----------------------------------------------------------------------------------- */

enum State {
   GO,   /* start: a value is expected */
   OK,   /* a value is complete */
   OB,   /* after '{': a key or '}' */
   KE,   /* after ',' in an object: a key */
   CO,   /* after a key: ':' */
   VA,   /* after ':' or after ',' in an array: a value */
   AR,   /* after '[': a value or ']' */
   ST,   /* inside a string */
   ES,   /* after a backslash */
   U1, U2, U3, U4,   /* \u digits */
   S1,   /* after a high surrogate: '\' */
   S2,   /* after a high surrogate and '\': 'u' */
   L1, L2, L3, L4,   /* digits of the low surrogate */
   MI,   /* '-' */
   ZE,   /* '0' */
   IN,   /* integer digits */
   FP,   /* '.': a digit must follow */
   FR,   /* fraction digits */
   E1,   /* 'e': sign or digit */
   E2,   /* exponent sign: digit */
   E3,   /* exponent digits */
   T1, T2, T3,       /* t, tr, tru */
   F1, F2, F3, F4,   /* f, fa, fal, fals */
   N1, N2, N3,       /* n, nu, nul */
   NR_STATES
};

/* Transitions below 0 are actions. */
enum Action {
   X_ERR      = -1,   /* error (mapped from the state) */
   X_OBJ_OPEN = -2,   /* '{': push key mode */
   X_ARR_OPEN = -3,   /* '[': push array mode */
   X_OBJ_NONE = -4,   /* '}' right after '{' */
   X_OBJ_END  = -5,   /* '}' after a member value */
   X_ARR_END  = -6,   /* ']' */
   X_STR_END  = -7,   /* closing quote of a key or a value */
   X_COMMA    = -8,   /* ',' after a value */
   X_COLON    = -9,   /* ':' after a key */
   X_UEND     = -10,  /* last digit of \uXXXX */
   X_LEND     = -11   /* last digit of the low surrogate */
};

struct TransitionTable {
   signed char next[NR_STATES][NR_CLASSES];

   constexpr void row(int s, int value)
   {
      for (int c = 0; c < NR_CLASSES; c++) next[s][c] = (signed char)value;
   }
   constexpr void hexDigits(int s, int value)
   {
      const int hex[] = { C_ZERO, C_DIGIT, C_LOW_A, C_LOW_B, C_LOW_E, C_LOW_F, C_HEXLT, C_UPP_E };
      for (int c : hex) next[s][c] = (signed char)value;
   }
   /* Characters that start a value. */
   constexpr void valueStart(int s)
   {
      next[s][C_SPACE] = (signed char)s;
      next[s][C_LCURB] = X_OBJ_OPEN;
      next[s][C_LSQRB] = X_ARR_OPEN;
      next[s][C_QUOTE] = ST;
      next[s][C_MINUS] = MI;
      next[s][C_ZERO] = ZE;
      next[s][C_DIGIT] = IN;
      next[s][C_LOW_T] = T1;
      next[s][C_LOW_F] = F1;
      next[s][C_LOW_N] = N1;
   }
   /* Characters that may follow a complete value. */
   constexpr void valueEnd(int s)
   {
      next[s][C_SPACE] = OK;
      next[s][C_RCURB] = X_OBJ_END;
      next[s][C_RSQRB] = X_ARR_END;
      next[s][C_COMMA] = X_COMMA;
      next[s][C_COLON] = X_COLON;   /* accepted only after a key */
   }

   constexpr TransitionTable() : next()
   {
      for (int s = 0; s < NR_STATES; s++) row(s, X_ERR);

      valueStart(GO);
      valueStart(VA);
      valueStart(AR);
      next[AR][C_RSQRB] = X_ARR_END;

      valueEnd(OK);

      next[OB][C_SPACE] = OB;
      next[OB][C_QUOTE] = ST;
      next[OB][C_RCURB] = X_OBJ_NONE;

      next[KE][C_SPACE] = KE;
      next[KE][C_QUOTE] = ST;

      next[CO][C_SPACE] = CO;
      next[CO][C_COLON] = X_COLON;

      /* strings: everything but NUL, the quote and the backslash */
      row(ST, ST);
      next[ST][C_NUL] = X_ERR;
      next[ST][C_QUOTE] = X_STR_END;
      next[ST][C_BACKS] = ES;

      next[ES][C_QUOTE] = ST;
      next[ES][C_BACKS] = ST;
      next[ES][C_SLASH] = ST;
      next[ES][C_LOW_B] = ST;
      next[ES][C_LOW_F] = ST;
      next[ES][C_LOW_N] = ST;
      next[ES][C_LOW_R] = ST;
      next[ES][C_LOW_T] = ST;
      next[ES][C_LOW_U] = U1;

      hexDigits(U1, U2);
      hexDigits(U2, U3);
      hexDigits(U3, U4);
      hexDigits(U4, X_UEND);
      next[S1][C_BACKS] = S2;
      next[S2][C_LOW_U] = L1;
      hexDigits(L1, L2);
      hexDigits(L2, L3);
      hexDigits(L3, L4);
      hexDigits(L4, X_LEND);

      /* numbers */
      next[MI][C_ZERO] = ZE;
      next[MI][C_DIGIT] = IN;

      valueEnd(ZE);
      next[ZE][C_POINT] = FP;
      next[ZE][C_LOW_E] = E1;
      next[ZE][C_UPP_E] = E1;

      valueEnd(IN);
      next[IN][C_ZERO] = IN;
      next[IN][C_DIGIT] = IN;
      next[IN][C_POINT] = FP;
      next[IN][C_LOW_E] = E1;
      next[IN][C_UPP_E] = E1;

      next[FP][C_ZERO] = FR;
      next[FP][C_DIGIT] = FR;

      valueEnd(FR);
      next[FR][C_ZERO] = FR;
      next[FR][C_DIGIT] = FR;
      next[FR][C_LOW_E] = E1;
      next[FR][C_UPP_E] = E1;

      next[E1][C_PLUS] = E2;
      next[E1][C_MINUS] = E2;
      next[E1][C_ZERO] = E3;
      next[E1][C_DIGIT] = E3;

      next[E2][C_ZERO] = E3;
      next[E2][C_DIGIT] = E3;

      valueEnd(E3);
      next[E3][C_ZERO] = E3;
      next[E3][C_DIGIT] = E3;

      /* keywords */
      next[T1][C_LOW_R] = T2;
      next[T2][C_LOW_U] = T3;
      next[T3][C_LOW_E] = OK;
      next[F1][C_LOW_A] = F2;
      next[F2][C_LOW_L] = F3;
      next[F3][C_LOW_S] = F4;
      next[F4][C_LOW_E] = OK;
      next[N1][C_LOW_U] = N2;
      next[N2][C_LOW_L] = N3;
      next[N3][C_LOW_L] = OK;
   }
};
constexpr TransitionTable state_transition_table;

/* ---- modes ------------------------------------------------------------------------------------ */

enum Mode { MODE_ARRAY, MODE_DONE, MODE_KEY, MODE_OBJECT };

/* Open containers at most. */
const int kMaxDepth = 100;

inline bool isCompleteNumber(int s) { return s == ZE || s == IN || s == FR || s == E3; }
inline bool isNumberState(int s) { return s >= MI && s <= E3; }

/* Status for a character that has no transition in state s. */
int errorStatus(QSCTXT* ctxt, int state, int cls, QSOCTET c)
{
   switch (state) {
      case GO:
      case VA:
         return (cls == C_RCURB || cls == C_RSQRB) ? RTERR_UNBALANCED_STRUCTURE
                                                   : RTERR_CHARACTER_NOT_IN_SET;
      case OB:
      case KE:
         return RTERR_EXPECTED_NAME;
      case CO:
         rtxErrAddStrParm(ctxt, ":");
         addCharParm(ctxt, c);
         return RTERR_UNEXPECTED_IDENTIFIER;
      case AR:
         return RTERR_UNBALANCED_STRUCTURE;
      case U1: case U2: case U3: case U4:
      case S1: case S2:
      case L1: case L2: case L3: case L4:
         return RTERR_INVALID_UNICODE_CHARACTER;
      case MI: case ZE: case IN: case FP: case FR: case E1: case E2: case E3:
         return RTERR_INVALID_REAL_VALUE;
      case T1: case T2: case T3:
      case F1: case F2: case F3: case F4:
         return RTERR_INVALID_BOOLEAN_KEYWORD;
      case N1: case N2: case N3:
         return RTERR_INVALID_NULL_KEYWORD;
      default:
         return RTERR_CHARACTER_NOT_IN_SET;
   }
}

/* Runs the recogniser from the cursor. On success *pstart / *plen give the
 * text of the value in the input buffer. */
int recognise(QSCTXT* ctxt, QSSIZE* pstart, QSSIZE* plen)
{
   if (peekNonWs(ctxt) < 0) return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
   QSRTBuffer& b = ctxt->buffer;
   const QSSIZE start = b.byteIndex;
   const bool diag = (ctxt->flags & QSDIAG) != 0;

   QSOCTET modes[kMaxDepth];
   int depth = 0;                      /* 0: only the done mode */
   int state = GO;
   unsigned unit = 0;                  /* value of the \u digits */
   unsigned highUnit = 0;
   const QSOCTET* data = b.data;
   QSSIZE i = b.byteIndex;
   const QSSIZE size = b.size;

   while (i < size) {
      QSOCTET c = data[i];
      if (diag) rtxPrintToStream(ctxt, "read character: %c\n", c);
      int cls = classOf(c);
      int next = state_transition_table.next[state][cls];
      if (c == ' ' && next == state && !diag && !(depth == 0 && isCompleteNumber(state))) {
         /* a run of spaces that leaves the state as it is (indentation between tokens): the
          * same transition for each, taken eight at a time */
         i++;
         while (i + 8 <= size) {
            QSUINT64 w;
            std::memcpy(&w, data + i, 8);
            if (w != 0x2020202020202020ull) break;
            i += 8;
         }
         while (i < size && data[i] == ' ') i++;
         continue;
      }

      if (depth == 0 && isCompleteNumber(state) && !isNumberState(next)) {
         /* the character closing a top-level number is given back */
         b.byteIndex = i;
         *pstart = start;
         *plen = i - start;
         return 0;
      }
      i++;
      if ((state >= U1 && state <= U4) || (state >= L1 && state <= L4)) {
         unit = (unit << 4) | hexValueOf(c);
      }

      if (next >= 0) {
         if (state == ES && next == U1) unit = 0;
         state = next;
      }
      else {
         int stat = 0;
         switch (next) {
            case X_OBJ_OPEN:
            case X_ARR_OPEN:
               if (depth == kMaxDepth) {
                  stat = RTERR_NESTING_TOO_DEEP;
                  break;
               }
               modes[depth++] = (next == X_OBJ_OPEN) ? MODE_KEY : MODE_ARRAY;
               state = (next == X_OBJ_OPEN) ? OB : AR;
               break;
            case X_OBJ_NONE:
               if (depth == 0 || modes[depth - 1] != MODE_KEY) stat = RTERR_UNBALANCED_STRUCTURE;
               else { depth--; state = OK; }
               break;
            case X_OBJ_END:
               if (depth == 0 || modes[depth - 1] != MODE_OBJECT) stat = RTERR_UNBALANCED_STRUCTURE;
               else { depth--; state = OK; }
               break;
            case X_ARR_END:
               if (depth == 0 || modes[depth - 1] != MODE_ARRAY) stat = RTERR_UNBALANCED_STRUCTURE;
               else { depth--; state = OK; }
               break;
            case X_STR_END:
               state = (depth != 0 && modes[depth - 1] == MODE_KEY) ? CO : OK;
               break;
            case X_COMMA:
               if (depth != 0 && modes[depth - 1] == MODE_OBJECT) {
                  modes[depth - 1] = MODE_KEY;
                  state = KE;
               }
               else if (depth != 0 && modes[depth - 1] == MODE_ARRAY) {
                  state = VA;
               }
               else {
                  stat = RTERR_UNEXPECTED_ELEMENT;
               }
               break;
            case X_COLON:
               if (depth != 0 && modes[depth - 1] == MODE_KEY) {
                  modes[depth - 1] = MODE_OBJECT;
                  state = VA;
               }
               else {
                  stat = RTERR_UNEXPECTED_ELEMENT;
               }
               break;
            case X_UEND:
               if (unit >= 0xD800 && unit <= 0xDBFF) {
                  highUnit = unit;
                  unit = 0;
                  state = S1;
               }
               else if (unit >= 0xDC00 && unit <= 0xDFFF) {
                  stat = RTERR_INVALID_UNICODE_CHARACTER;
               }
               else {
                  state = ST;
               }
               break;
            case X_LEND:
               if (unit >= 0xDC00 && unit <= 0xDFFF && highUnit != 0) state = ST;
               else stat = RTERR_INVALID_UNICODE_CHARACTER;
               break;
            default:
               stat = errorStatus(ctxt, state, cls, c);
               break;
         }
         if (stat != 0) {
            b.byteIndex = i - 1;
            ctxt->lastChar = c;
            return JSON_LOG(ctxt, stat);
         }
      }
      ctxt->lastChar = c;
      if (depth == 0 && state == OK) {
         b.byteIndex = i;
         *pstart = start;
         *plen = i - start;
         return 0;
      }
   }
   b.byteIndex = i;
   if (depth == 0 && isCompleteNumber(state)) {
      *pstart = start;
      *plen = i - start;
      return 0;
   }
   return JSON_LOG(ctxt, RTERR_UNEXPECTED_END_OF_BUFFER);
}

} // namespace

int rtJsonDecAnyType(QSCTXT* ctxt, QSUTF8CHAR** ppvalue)
{
   QSOCTET savedMode = ctxt->jsonMode;
   QSSIZE start = 0, len = 0;
   int stat = recognise(ctxt, &start, &len);
   ctxt->jsonMode = savedMode;
   if (stat != 0) return JSON_LOG(ctxt, stat);
   if (ppvalue != nullptr) {
      QSUTF8CHAR* text = (QSUTF8CHAR*)rtxMemHeapAlloc(ctxt, len + 1);
      if (text == nullptr) return JSON_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      std::memcpy(text, ctxt->buffer.data + start, len);
      text[len] = 0;
      *ppvalue = text;
   }
   return 0;
}

int rtJsonDecAnyElem2(QSCTXT* ctxt, QSUTF8CHAR** ppvalue)
{
   const QSUTF8CHAR* name = rtxCtxtPeekElemName(ctxt);
   QSSIZE nameLen = (name != nullptr) ? std::strlen((const char*)name) : 0;
   QSSIZE prefixLen = (name != nullptr) ? nameLen + 3 : 0;
   QSOCTET savedMode = ctxt->jsonMode;
   QSSIZE start = 0, len = 0;
   QSSIZE from = ctxt->buffer.byteIndex;
   int stat = recognise(ctxt, &start, &len);
   ctxt->jsonMode = savedMode;
   if (stat != 0) {
      if (ctxt->flags & QSDIAG) {
         /* what was captured up to the failure */
         peekRaw(ctxt);
         const QSRTBuffer& b = ctxt->buffer;
         QSSIZE first = from;
         while (first < b.byteIndex && isWhitespace(b.data[first])) first++;
         QSSIZE partLen = (b.byteIndex > first) ? b.byteIndex - first : 0;
         char* membuf = (char*)rtxMemHeapAlloc(ctxt, prefixLen + partLen + 1);
         if (membuf != nullptr) {
            if (name != nullptr) {
               membuf[0] = '"';
               std::memcpy(membuf + 1, name, nameLen);
               membuf[nameLen + 1] = '"';
               membuf[nameLen + 2] = ':';
            }
            if (partLen != 0) std::memcpy(membuf + prefixLen, b.data + first, partLen);
            membuf[prefixLen + partLen] = 0;
            rtxPrintToStream(ctxt, "membuf = %s\n", membuf);
            rtxMemHeapFreePtr(ctxt, membuf);
         }
      }
      return JSON_LOG(ctxt, stat);
   }
   if (ppvalue != nullptr) {
      QSUTF8CHAR* text = (QSUTF8CHAR*)rtxMemHeapAlloc(ctxt, prefixLen + len + 1);
      if (text == nullptr) return JSON_LOG(ctxt, RTERR_NO_DYNAMIC_MEMORY);
      if (name != nullptr) {
         text[0] = '"';
         std::memcpy(text + 1, name, nameLen);
         text[nameLen + 1] = '"';
         text[nameLen + 2] = ':';
      }
      std::memcpy(text + prefixLen, ctxt->buffer.data + start, len);
      text[prefixLen + len] = 0;
      *ppvalue = text;
   }
   return 0;
}
