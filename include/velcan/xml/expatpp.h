// expatpp: an event-driven XML reader over one expat parser.
//
// Derive from expatpp, override the events you need and feed the document through
// XML_Parse() in pieces of any size, the last one with isFinal set. Each object owns one
// expat parser (narrow characters, UTF-8 texts, no namespace processing) and receives its
// events through the virtual operations below, on the thread that calls XML_Parse().
//
// Texts handed to the events are expat's own buffers: they are valid only during the call.
// Copy what you keep. charData() and defaultHandler() texts are not NUL-terminated; exactly
// len bytes are valid.
//
// An event must not let an exception out of it: the exception would cross expat's C code,
// which cannot pass it on (undefined behaviour: the process may end, or the parser be left
// broken). Catch it inside the event, keep what went wrong in the reader, and stop the parse:
//   XML_StopParser(static_cast<XML_Parser>(static_cast<void*>(*this)), XML_FALSE);
// XML_Parse() then returns 0, XML_GetErrorCode() gives XML_ERROR_ABORTED and no further event
// comes; the reader's own record says why.
#ifndef VELCAN_XML_EXPATPP_H
#define VELCAN_XML_EXPATPP_H

#include <expat.h>

#include "velcan/export.h"

// Copying a reader is almost always a mistake (see the copy constructor), so compilers warn of
// it. Define VELCAN_ALLOW_EXPATPP_COPY before including this header where a copy is meant.
#if defined(VELCAN_ALLOW_EXPATPP_COPY)
#define VELCAN_EXPATPP_COPY
#elif defined(_MSC_VER)
#define VELCAN_EXPATPP_COPY                                                                        \
    __declspec(deprecated("copies share one parser; hold a reader in place or by pointer"))
#else
#define VELCAN_EXPATPP_COPY                                                                        \
    __attribute__((deprecated("copies share one parser; hold a reader in place or by pointer")))
#endif

class VELCAN_API expatpp {
  public:
    // With createParser true (the default), creates an expat parser with no encoding named,
    // makes this object its user data and registers every callback below. With false,
    // `parser` is null: the object converts to a null handle and its destructor frees nothing.
    explicit expatpp(bool createParser = true);

    // Never copy a reader that has a parser (hold it in place or by pointer): copying is
    // shallow, both objects then hold the same parser, and each frees it when destroyed
    // (a std::vector of readers that grows frees one parser twice). The parser's user data stays
    // the object that created it, so events of a document fed through a copy still go to the
    // original. Assignment overwrites the target's handle without freeing it. Both are marked
    // deprecated so that a compiler warns of a copy, a derived reader's included; they stay
    // exported as they are.
    VELCAN_EXPATPP_COPY expatpp(const expatpp&) = default;
    VELCAN_EXPATPP_COPY expatpp& operator=(const expatpp&) = default;

    // Frees the parser when `parser` is not null.
    virtual ~expatpp();

    // Events, in the order of their virtual slots. Each default does nothing.

    // An element starts; atts is name, value, name, value, ... ended by a null name.
    virtual void startElement(const char* name, const char** atts);
    // An element ends.
    virtual void endElement(const char* name);
    // A run of character data: len bytes, not NUL-terminated; one text may come in
    // several calls, split anywhere.
    virtual void charData(const char* s, int len);
    // A processing instruction <?target data?>.
    virtual void processingInstruction(const char* target, const char* data);
    // Everything expat reports no other event for: the XML declaration, comments, markup
    // declarations, and references to entities declared in the document's own DTD, which
    // are not expanded. len bytes, not NUL-terminated.
    virtual void defaultHandler(const char* s, int len);
    // The document is not standalone (it has an external DTD subset or a parameter-entity
    // reference without standalone="yes"). Return non-zero to go on; the default returns 0,
    // so expat rejects such a document with XML_ERROR_NOT_STANDALONE.
    virtual int notStandaloneHandler();
    // An unparsed entity declaration (one with an NDATA notation).
    virtual void unparsedEntityDecl(const char* entityName, const char* base, const char* systemId,
                                    const char* publicId, const char* notationName);
    // A notation declaration.
    virtual void notationDecl(const char* notationName, const char* base, const char* systemId,
                              const char* publicId);
    // Namespace declarations. Registered, but never called: the parser does no namespace
    // processing, so xmlns attributes arrive in atts and prefixed names arrive whole.
    virtual void startNamespace(const char* prefix, const char* uri);
    virtual void endNamespace(const char* prefix);

    // The parser handle, for calling any expat function this class does not wrap.
    operator void*() const;

    // Feeds a piece of the document to expat; isFinal non-zero on the last piece. Returns
    // expat's status unchanged: 0 on error, non-zero on success. After an error the parser
    // stays failed.
    int XML_Parse(const char* s, int len, int isFinal);
    // The line expat is at (1-based); after an error, the line of the error.
    int XML_GetCurrentLineNumber();
    // expat's error code; XML_ERROR_NONE while all is well.
    XML_Error XML_GetErrorCode();

    // expat's handlers: each treats userData as the expatpp object and calls its event.
    static void XMLCALL startElementCallback(void* userData, const char* name, const char** atts);
    static void XMLCALL endElementCallback(void* userData, const char* name);
    static void XMLCALL charDataCallback(void* userData, const char* s, int len);
    static void XMLCALL processingInstructionCallback(void* userData, const char* target,
                                                      const char* data);
    static void XMLCALL defaultHandlerCallback(void* userData, const char* s, int len);
    static int XMLCALL notStandaloneHandlerCallback(void* userData);
    static void XMLCALL unParsedEntityDeclCallback(void* userData, const char* entityName,
                                                   const char* base, const char* systemId,
                                                   const char* publicId, const char* notationName);
    static void XMLCALL notationDeclCallback(void* userData, const char* notationName,
                                             const char* base, const char* systemId,
                                             const char* publicId);
    static void XMLCALL startNamespaceCallback(void* userData, const char* prefix, const char* uri);
    static void XMLCALL endNamespaceCallback(void* userData, const char* prefix);

    // True when a piece of character data is blank by a deliberately narrow rule: length 0;
    // a lone line feed or carriage return; a carriage return and line feed; or spaces only.
    // Tabs never count, nor does a run of spaces ending in a line break.
    bool emptyCharData(const char* s, int len);

    // The number of leading spaces, tabs, carriage returns and line feeds of a
    // NUL-terminated text.
    static int skipWhiteSpace(const char* s);

  protected:
    // The expat parser; null when there is none.
    XML_Parser parser;
};

#undef VELCAN_EXPATPP_COPY

#endif
