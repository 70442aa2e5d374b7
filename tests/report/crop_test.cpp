int placeholder_crop;
