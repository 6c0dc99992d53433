# Options for all targets that use Qt, in addition to the general ones.
find_package(Qt6 6.4 REQUIRED COMPONENTS Core DBus Gui Svg Widgets)
# From then on a package of its own.
if(Qt6_VERSION VERSION_GREATER_EQUAL 6.10)
    find_package(Qt6 REQUIRED COMPONENTS GuiPrivate)
endif()

add_library(quillbox_qt INTERFACE)
add_library(quillbox::qt ALIAS quillbox_qt)
target_link_libraries(quillbox_qt INTERFACE Qt6::Core Qt6::Gui Qt6::Widgets)
target_compile_definitions(
    quillbox_qt
    INTERFACE QT_NO_KEYWORDS
              QT_NO_FOREACH
              QT_NO_CAST_FROM_ASCII
              QT_NO_CAST_TO_ASCII
              QT_NO_CAST_FROM_BYTEARRAY
              QT_NO_URL_CAST_FROM_STRING
              QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
              QT_STRICT_ITERATORS
              QT_DISABLE_DEPRECATED_BEFORE=0x060400)

quillbox_precompile(qt_headers LINK quillbox::qt HEADERS <QApplication> <QFile> <QJsonObject> <QLabel> <QTimer>)
