# The companions of the embedded host: tree container, record packer, order list.
morva_add_test(host_tree_test LIBRARIES qzhost
  SOURCES tree_test.cpp)
morva_add_test(host_tree_threads_test LABELS threads LIBRARIES qzhost TIMEOUT 300
  SOURCES tree_threads_test.cpp)
morva_add_test(host_packer_test LIBRARIES qzhost
  SOURCES packer_test.cpp packer_layout_test.cpp)
morva_add_test(host_order_test APART LIBRARIES qzhost
  SOURCES order_list_test.cpp order_walk_test.cpp order_limit_test.cpp)
morva_add_test(host_many_test LIBRARIES qzhost
  SOURCES many_test.cpp)
