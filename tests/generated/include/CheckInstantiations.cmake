# LIBRARY must define the shortcut templates for every kind; OBJECT, which uses them, must define nothing of them.
# Both are read with NM.
set(kinds
    "ddr_Shortcut<ddr_Ddb>"
    "ddr_Shortcut<ddr_Model>"
    "ddr_Shortcut<cls_Map2Obj<"
    "ddr_Shortcut<mdl_MapString2Obj<ddr_Result> >"
    "ddr_Shortcut<mdl_MapString2Obj<ddr_UserData> >"
    "ddr_ShortcutImpl<ddr_Ddb>"
    "ddr_ShortcutImpl<ddr_Model>"
    "ddr_ShortcutImpl<cls_Map2Obj<"
    "ddr_ShortcutImpl<mdl_MapString2Obj<ddr_Result> >"
    "ddr_ShortcutImpl<mdl_MapString2Obj<ddr_UserData> >"
    "ddr_MemberShortcut<ddr_Ddb, cls_Map2Obj<"
    "ddr_MemberShortcut<ddr_Ddb, mdl_MapString2Obj<ddr_Result>, 1>"
    "ddr_MemberShortcut<ddr_Ddb, mdl_MapString2Obj<ddr_UserData>, 1>"
    "ddr_DictionaryShortcut<cls_Map2Obj<"
    "ddr_DdbShortcutImpl::")

# The symbols of a file in the table that ARGN selects.
function(read_symbols result file)
  execute_process(COMMAND ${NM} -C ${ARGN} ${file} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE ";" " " symbols "${symbols}")
  string(REPLACE "\n" ";" symbols "${symbols}")
  set(${result} ${symbols} PARENT_SCOPE)
endfunction()

read_symbols(defined ${LIBRARY} -D --defined-only)
foreach(kind ${kinds})
  set(found "")
  foreach(symbol IN LISTS defined)
    string(FIND "${symbol}" "vtable for ${kind}" asTable)
    string(FIND "${symbol}" " ${kind}" asMember)
    if(asTable GREATER -1 OR asMember GREATER -1)
      set(found yes)
      break()
    endif()
  endforeach()
  if(NOT found)
    message(FATAL_ERROR "${LIBRARY} does not define ${kind}")
  endif()
endforeach()

# Construction without arguments, copying and assignment are defaulted inside the classes, so that they cost no call;
# a program may have its own copy of those.
set(shortcut
    "^[0-9a-f]+ [TtWwVv] (vtable for |typeinfo for |non-virtual thunk to )?ddr_(Shortcut|ShortcutImpl|MemberShortcut|DictionaryShortcut)<"
)
set(defaulted ">::(ddr_ShortcutImpl\\(\\)|ddr_[A-Za-z]+\\(ddr_.* const&\\)|operator=\\(.*\\))$")
set(elsewhere "[*&] (std::|[a-z]+_)") # a function of another class that returns one
set(used no)
read_symbols(symbols ${OBJECT})
foreach(symbol IN LISTS symbols)
  if(symbol MATCHES "${shortcut}" AND NOT symbol MATCHES "${defaulted}|${elsewhere}")
    message(FATAL_ERROR "${OBJECT} defines what it should only declare: ${symbol}")
  endif()
  if(symbol MATCHES " U ddr_Shortcut<")
    set(used yes)
  endif()
endforeach()
if(NOT used)
  message(FATAL_ERROR "${OBJECT} uses no shortcut")
endif()
