# Not built here: no machine of the project has Apple's compiler. Its source, its flags and its frameworks.
target_sources(tarsil-objc PRIVATE Tarsil/apple/system.mm)
target_compile_options(tarsil-objc PRIVATE -fno-objc-arc)
target_link_libraries(tarsil-objc PUBLIC "-framework Foundation")
