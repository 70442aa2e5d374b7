int placeholder_report;
