#include "velcan/xml/expatpp.h"

expatpp::expatpp(bool createParser) : parser(nullptr) {
    if (!createParser) {
        return;
    }
    parser = XML_ParserCreate(nullptr);
    if (parser == nullptr) {
        return;
    }
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, startElementCallback, endElementCallback);
    XML_SetCharacterDataHandler(parser, charDataCallback);
    XML_SetProcessingInstructionHandler(parser, processingInstructionCallback);
    // The non-expanding form: references to internal entities reach defaultHandler.
    XML_SetDefaultHandler(parser, defaultHandlerCallback);
    XML_SetUnparsedEntityDeclHandler(parser, unParsedEntityDeclCallback);
    XML_SetNotationDeclHandler(parser, notationDeclCallback);
    XML_SetNotStandaloneHandler(parser, notStandaloneHandlerCallback);
    XML_SetNamespaceDeclHandler(parser, startNamespaceCallback, endNamespaceCallback);
}

expatpp::~expatpp() {
    if (parser != nullptr) {
        XML_ParserFree(parser);
    }
}

void expatpp::startElement(const char*, const char**) {}
void expatpp::endElement(const char*) {}
void expatpp::charData(const char*, int) {}
void expatpp::processingInstruction(const char*, const char*) {}
void expatpp::defaultHandler(const char*, int) {}
int expatpp::notStandaloneHandler() {
    return 0;
}
void expatpp::unparsedEntityDecl(const char*, const char*, const char*, const char*, const char*) {}
void expatpp::notationDecl(const char*, const char*, const char*, const char*) {}
void expatpp::startNamespace(const char*, const char*) {}
void expatpp::endNamespace(const char*) {}

expatpp::operator void*() const {
    return parser;
}

int expatpp::XML_Parse(const char* s, int len, int isFinal) {
    return ::XML_Parse(parser, s, len, isFinal);
}

int expatpp::XML_GetCurrentLineNumber() {
    return static_cast<int>(::XML_GetCurrentLineNumber(parser));
}

XML_Error expatpp::XML_GetErrorCode() {
    return ::XML_GetErrorCode(parser);
}

namespace {
expatpp* self(void* userData) {
    return static_cast<expatpp*>(userData);
}
} // namespace

void XMLCALL expatpp::startElementCallback(void* userData, const char* name, const char** atts) {
    self(userData)->startElement(name, atts);
}

void XMLCALL expatpp::endElementCallback(void* userData, const char* name) {
    self(userData)->endElement(name);
}

void XMLCALL expatpp::charDataCallback(void* userData, const char* s, int len) {
    self(userData)->charData(s, len);
}

void XMLCALL expatpp::processingInstructionCallback(void* userData, const char* target,
                                                    const char* data) {
    self(userData)->processingInstruction(target, data);
}

void XMLCALL expatpp::defaultHandlerCallback(void* userData, const char* s, int len) {
    self(userData)->defaultHandler(s, len);
}

int XMLCALL expatpp::notStandaloneHandlerCallback(void* userData) {
    return self(userData)->notStandaloneHandler();
}

void XMLCALL expatpp::unParsedEntityDeclCallback(void* userData, const char* entityName,
                                                 const char* base, const char* systemId,
                                                 const char* publicId, const char* notationName) {
    self(userData)->unparsedEntityDecl(entityName, base, systemId, publicId, notationName);
}

void XMLCALL expatpp::notationDeclCallback(void* userData, const char* notationName,
                                           const char* base, const char* systemId,
                                           const char* publicId) {
    self(userData)->notationDecl(notationName, base, systemId, publicId);
}

void XMLCALL expatpp::startNamespaceCallback(void* userData, const char* prefix, const char* uri) {
    self(userData)->startNamespace(prefix, uri);
}

void XMLCALL expatpp::endNamespaceCallback(void* userData, const char* prefix) {
    self(userData)->endNamespace(prefix);
}

bool expatpp::emptyCharData(const char* s, int len) {
    if (len == 0) {
        return true;
    }
    if (len == 1 && (s[0] == '\n' || s[0] == '\r')) {
        return true;
    }
    if (len == 2 && s[0] == '\r' && s[1] == '\n') {
        return true;
    }
    if (s[len - 1] != ' ') {
        return false;
    }
    int spaces = 0;
    while (spaces < len - 1 && s[spaces] == ' ') {
        ++spaces;
    }
    return spaces == len - 1;
}

int expatpp::skipWhiteSpace(const char* s) {
    int n = 0;
    while (s[n] == ' ' || s[n] == '\t' || s[n] == '\n' || s[n] == '\r') {
        ++n;
    }
    return n;
}
