int placeholder_confusion;
