#include "gui/Desktop.h"

int main(int argc, char* argv[])
{
    return kestrova::gui::runDesktop(argc, argv);
}
