# Several sources in one compilation, so that the headers which they share are parsed once: 60 % of the
# time of a whole build, with and without sanitizers.
option(PIMBSR_UNITY "Compile several sources at once" OFF)

# Sources whose names of their own file would meet those of another: they are compiled alone, as is each
# source that defines a `trace`.
set(unity_alone
  wire/Ipv4.cpp host/Observer.cpp
  agent/ChangeRunner.cpp agent/EventLog.cpp agent/NeighborWatch.cpp agent/config/ConfigLint.cpp
  agent/views/Metrics.cpp
  sim/trial/Trial.cpp
  agent/helpers/HelperProcess.cpp agent/process/Privileges.cpp agent/helpers/StateWriterProcess.cpp
  agent/config/ConfigChanges.cpp agent/queues/OwnAddressWatch.cpp cli/show/SubjectErrors.cpp
  agent/queues/PacketFilter.cpp agent/queues/PimSocket.cpp
  tests/agent/ConfigLintTest.cpp tests/agent/ControlProtocolTest.cpp
  tests/agent/KernelAnswerTest.cpp tests/agent/KernelTablesTest.cpp
  tests/agent/LogTest.cpp tests/agent/PimSocketTest.cpp tests/agent/ReceiveQueuesTest.cpp
  tests/cli/LinkLayerTest.cpp
  tests/crp/RootRpCandidateTest.cpp tests/crp/RpCandidateTest.cpp tests/crp/RpTreeTest.cpp
  tests/crp/StateTableTest.cpp
  tests/host/MessageFitTest.cpp tests/host/QuickRelearnTest.cpp tests/host/QuotasTest.cpp
  tests/host/RpBoundsTest.cpp tests/host/SteadyCorrectionsTest.cpp
  tests/protocol/GateTest.cpp tests/protocol/OriginationTest.cpp tests/protocol/RxFragmentsTest.cpp
  tests/protocol/RootTest.cpp tests/protocol/SteadyStateTest.cpp
  tests/runtime/AttrLogAttackTest.cpp
  tests/view/DigestTest.cpp tests/wire/CrpAdvTest.cpp tests/wire/HelloTest.cpp)

function(pimbsr_unity target)
  if(NOT PIMBSR_UNITY)
    return()
  endif()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
  get_target_property(sources ${target} SOURCES)
  foreach(source ${sources})
    string(REPLACE "${PROJECT_SOURCE_DIR}/" "" name ${source})
    set(alone FALSE)
    if(name IN_LIST unity_alone)
      set(alone TRUE)
    elseif(EXISTS ${source})
      file(STRINGS ${source} traces REGEX "^static .*TraceSource const trace" LIMIT_COUNT 1)
      if(traces)
        set(alone TRUE)
      endif()
    endif()
    set_source_files_properties(${source} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ${alone})
  endforeach()
endfunction()
