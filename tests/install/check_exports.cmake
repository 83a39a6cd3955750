# Checks the dynamic symbol table of the shared library: the public contract is
# there, the library's internal classes are not. Expects LIBRARY.

execute_process(COMMAND nm -D --defined-only -C ${LIBRARY} RESULT_VARIABLE result OUTPUT_VARIABLE symbols)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()

set(required
  "korvane_3_10::ISymbolResolver::create\\(skeinkit2::generic_iterator_t<char const\\*>&, boost::intrusive_ptr<korvane_3_10::ISymbolFileLocator>&\\)"
  "korvane_3_10::ISymbolResolver::create\\(skeinkit2::generic_iterator_t<char const\\*>&, boost::intrusive_ptr<korvane_3_10::ISymbolFileLocator>&, korvane_arch\\)"
  "korvane_3_10::IJitLoader::create\\("
  "korvane_3_10::IJitProcesses::create\\("
  "korvane_3_10::IByteBuffer::create\\(\\)"
  "korvane_3_10::isNativeImage\\("
  "korvane_3_10::writeSymbolReport\\("
  "korvane_3_10::isTraceFileName\\("
  "korvane_3_10::parseTraceFileName\\("
  "korvane_3_10::listTraceFiles\\("
  "korvane_3_10::WcharToUtf8::convert\\("
  "korvane_3_10::Utf8ToWchar::convert\\("
  "TOBREK_2_18::debug::_private::____________________ASSERT____________________\\(")
foreach(pattern IN LISTS required)
  if(NOT symbols MATCHES "${pattern}")
    message(FATAL_ERROR "not exported: ${pattern}")
  endif()
endforeach()

set(internal
  JitDataManager JitMethod BaseMethodInfo Region JitFilesManager JitFileDecoder JitFileReader
  SymbolResolver JitLoader JitProcesses JitIdConverter ModuleEvaluator Md5HashGenerator
  JavaSignatureParser SourceLocation SourceFile Module ByteBuffer)
foreach(name IN LISTS internal)
  # The interface of the same name with an I in front is public; the class itself is not.
  if(symbols MATCHES "korvane_3_10::${name}[^A-Za-z0-9_]")
    string(REGEX MATCH "[^\n]*korvane_3_10::${name}[^A-Za-z0-9_][^\n]*" line "${symbols}")
    message(FATAL_ERROR "internal class exported: ${name}\n  ${line}")
  endif()
endforeach()
